/** What benchmarks need to work with a card: an accelerator or an open stream of the SDK, and the library's
 * configuration. */
#ifndef KOVA_BENCH_SDK_STREAM_H
#define KOVA_BENCH_SDK_STREAM_H

#include <enyx_hw.h>

#include <cstdint>
#include <string>

namespace kova::bench {

/** The accelerator of a card. Throws std::runtime_error when there is none. */
[[nodiscard]] enyx_hw_accelerator* open_accelerator(std::uint32_t card);

/** A card-to-host stream, opened as the library opens it. Throws std::runtime_error when it cannot be. */
class SdkStream {
 public:
    SdkStream(std::uint32_t card, std::uint32_t channel);
    ~SdkStream() { enyx_hw_a2c_stream_destroy(stream_); }
    SdkStream(const SdkStream&) = delete;
    SdkStream& operator=(const SdkStream&) = delete;

    [[nodiscard]] enyx_hw_a2c_stream* get() const { return stream_; }

 private:
    enyx_hw_a2c_stream* stream_ = nullptr;
};

/** Writes a configuration for this channel into a folder, where the log goes too; the path of the file. */
[[nodiscard]] std::string write_library_config(const std::string& folder, std::uint32_t card,
                                               std::uint32_t channel);

/** A folder of its own under the system's temporary one, removed with everything in it. */
class TemporaryFolder {
 public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    [[nodiscard]] const std::string& path() const { return path_; }

 private:
    std::string path_;
};

}  // namespace kova::bench

#endif  // KOVA_BENCH_SDK_STREAM_H
