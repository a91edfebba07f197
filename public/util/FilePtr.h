/**
 * An open C file that is closed when its owner goes.
 */
#ifndef KOVA_PUBLIC_UTIL_FILE_PTR_H
#define KOVA_PUBLIC_UTIL_FILE_PTR_H

#include <cstdio>
#include <memory>

struct CloseFile {
    void operator()(FILE* lpFile) const { std::fclose(lpFile); }
};

using CFilePtr = std::unique_ptr<FILE, CloseFile>;

#endif  // KOVA_PUBLIC_UTIL_FILE_PTR_H
