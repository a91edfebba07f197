// Runs a fuzz target over kept inputs, without a fuzzer: the files of the folders that are its arguments.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <span>
#include <vector>

#include "support/temp_dir.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> files_of(std::span<char*> folders) {
    std::vector<fs::path> files;
    for (const char* folder : folders) {
        for (const auto& entry : fs::directory_iterator(folder)) {
            files.push_back(fs::absolute(entry.path()));
        }
    }
    std::ranges::sort(files);
    return files;
}

void run(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    // An input that crashes is the last one named.
    std::printf("%s, %zu bytes\n", path.filename().c_str(), bytes.size());
    std::fflush(stdout);
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
    const auto files = files_of(std::span(argv, static_cast<std::size_t>(argc)).subspan(1));
    if (files.empty()) {
        std::fprintf(stderr, "no inputs\n");
        return 1;
    }
    // Nothing that the library writes, its log for one, stays behind.
    const kova::test::TempDir directory;
    const kova::test::WorkingDirectory working_directory(directory.path());
    std::ranges::for_each(files, run);
    return 0;
}
