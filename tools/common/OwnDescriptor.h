#pragma once

#include <unistd.h>

namespace tools {

/** A file descriptor, or the -1 of a call that failed, that is closed with its scope. */
class OwnDescriptor {
public:
    explicit OwnDescriptor(int fd = -1) : fd_(fd) {}
    ~OwnDescriptor() { reset(); }
    OwnDescriptor(const OwnDescriptor&) = delete;
    OwnDescriptor& operator=(const OwnDescriptor&) = delete;

    int get() const { return fd_; }
    bool isOpen() const { return fd_ >= 0; }

    /** Takes this one in place of the one it has, which is closed. */
    void reset(int fd = -1) {
        if (fd_ >= 0) {
            close(fd_);
        }
        fd_ = fd;
    }

private:
    int fd_;
};

}  // namespace tools
