// Why a file or a folder could not be read.
#ifndef VANTRO_SERVICE_CATALOGUE_FILES_FILE_FAILURE_H
#define VANTRO_SERVICE_CATALOGUE_FILES_FILE_FAILURE_H

#include <string>

namespace vantro::service::catalogue {

// True for errors that may pass: want of memory or descriptors, or a read that failed. They say
// nothing about the file, so it is tried again and the catalogue remembers nothing of them.
bool is_passing(int error);

// True for those of them that are a shortage of the service's own, and no failure of a disk.
bool is_want(int error);

struct FileFailure {
    std::string why; // empty where the file was read
    int error = 0;   // of the system; 0 where the content of the file is the reason

    explicit operator bool() const { return !why.empty(); }
    bool passing() const { return is_passing(error); }
};

FileFailure file_failure(int error);

} // namespace vantro::service::catalogue

#endif
