#include "bench/sdk_stream.h"

#include <stdlib.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace kova::bench {

namespace {

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

enyx_hw_a2c_stream* open_stream(enyx_hw_accelerator* accelerator, std::uint32_t channel) {
    const std::string name = "CUSTOM_CHAN" + std::to_string(channel) + "_DATA";
    enyx_hw_filter* filter = enyx_hw_filter_create();
    enyx_hw_a2c_stream_descriptor* descriptor = nullptr;
    enyx_hw_a2c_stream* stream = nullptr;
    if (filter != nullptr && enyx_hw_filter_set_name(filter, name.c_str()) == 0 &&
        enyx_hw_accelerator_enumerate_a2c_streams(accelerator, filter, &descriptor, 1) == 1) {
        stream = enyx_hw_a2c_stream_create(descriptor, nullptr);
        enyx_hw_free_a2c_stream_descriptors(&descriptor, 1);
    }
    enyx_hw_filter_destroy(filter);
    return stream;
}

}  // namespace

enyx_hw_accelerator* open_accelerator(std::uint32_t card) {
    enyx_hw_filter* filter = enyx_hw_filter_create();
    enyx_hw_accelerator_descriptor* descriptor = nullptr;
    enyx_hw_accelerator* accelerator = nullptr;
    if (filter != nullptr && enyx_hw_filter_set_index(filter, card) == 0 &&
        enyx_hw_enumerate_accelerators(filter, &descriptor, 1) == 1) {
        accelerator = enyx_hw_accelerator_get(descriptor);
        enyx_hw_free_accelerator_descriptors(&descriptor, 1);
    }
    enyx_hw_filter_destroy(filter);
    if (accelerator == nullptr) {
        fail("card " + std::to_string(card));
    }
    return accelerator;
}

SdkStream::SdkStream(std::uint32_t card, std::uint32_t channel) {
    enyx_hw_accelerator* accelerator = open_accelerator(card);
    stream_ = open_stream(accelerator, channel);
    if (stream_ == nullptr) {
        fail("channel " + std::to_string(channel));
    }
}

std::string write_library_config(const std::string& folder, std::uint32_t card, std::uint32_t channel) {
    const std::string path = folder + "/channel" + std::to_string(channel) + ".ini";
    std::ofstream file(path);
    file << "[config]\n"
         << "device=xilinx" << card << ":" << channel << "\n"
         << "log_level=0\n"
         << "log_path=" << folder << "\n";
    file.close();
    if (!file) {
        fail(path);
    }
    return path;
}

TemporaryFolder::TemporaryFolder()
    : path_((std::filesystem::temp_directory_path() / "kova-bench.XXXXXX").string()) {
    if (mkdtemp(path_.data()) == nullptr) {
        fail(path_);
    }
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace kova::bench
