/**
 * A directory of a test's own that goes with it.
 */
#ifndef KOVA_TESTS_SUPPORT_TEMP_DIR_H
#define KOVA_TESTS_SUPPORT_TEMP_DIR_H

#include <stdlib.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>

namespace kova::test {

/** A fresh, empty directory; its destructor removes it with everything in it. */
class TempDir {
 public:
    /** Throws std::system_error when no directory can be made. */
    TempDir() {
        std::string pattern = (std::filesystem::temp_directory_path() / "kova_test_XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), "mkdtemp " + pattern);
        }
        path_ = pattern;
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
    std::filesystem::path path_;
};

/** The process stands in a directory while this lives, and where it stood before afterwards. */
class WorkingDirectory {
 public:
    explicit WorkingDirectory(const std::filesystem::path& directory)
        : before_(std::filesystem::current_path()) {
        std::filesystem::current_path(directory);
    }
    ~WorkingDirectory() {
        std::error_code ignored;
        std::filesystem::current_path(before_, ignored);
    }
    WorkingDirectory(const WorkingDirectory&) = delete;
    WorkingDirectory& operator=(const WorkingDirectory&) = delete;

 private:
    std::filesystem::path before_;
};

}  // namespace kova::test

#endif  // KOVA_TESTS_SUPPORT_TEMP_DIR_H
