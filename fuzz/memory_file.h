/**
 * A file in memory for readers that want a path.
 */
#ifndef KOVA_FUZZ_MEMORY_FILE_H
#define KOVA_FUZZ_MEMORY_FILE_H

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string>
#include <system_error>

namespace kova::fuzz {

class MemoryFile {
 public:
    MemoryFile() : descriptor_(::memfd_create("input", MFD_CLOEXEC)) {
        if (descriptor_ < 0) {
            throw std::system_error(errno, std::generic_category(), "memfd_create");
        }
        path_ = "/proc/self/fd/" + std::to_string(descriptor_);
    }
    ~MemoryFile() { ::close(descriptor_); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    /** Makes these bytes its content. */
    void write(const std::uint8_t* data, std::size_t size) const {
        if (::ftruncate(descriptor_, 0) != 0 ||
            ::pwrite(descriptor_, data, size, 0) != static_cast<ssize_t>(size)) {
            throw std::system_error(errno, std::generic_category(), path_);
        }
    }

    /** Whoever opens it reads from the start. */
    [[nodiscard]] const std::string& path() const { return path_; }

 private:
    int descriptor_;
    std::string path_;
};

}  // namespace kova::fuzz

#endif  // KOVA_FUZZ_MEMORY_FILE_H
