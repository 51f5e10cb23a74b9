#include "tools/tsyn/record/RotatingFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace tsyn {
namespace {

bool isRegularFile(int fd) {
    struct stat status {};
    return fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
}

bool exists(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0;
}

}  // namespace

std::string RotatingFile::pathOf(unsigned int number) const {
    return number == 0 ? path_ : path_ + "." + std::to_string(number);
}

std::string RotatingFile::problem(const std::string& what) const {
    const std::string why = std::strerror(errno);
    const char* const remedy = errno == ENOSPC || errno == EDQUOT || errno == EFBIG
                                   ? "; free some space or lower --max-size or --keep"
                                   : "; name a file in a folder that can be written";
    return "-o " + path_ + ": " + what + " (" + why + ")" + remedy;
}

/** The first file that a new recording would take the place of, empty when there is none. */
std::string RotatingFile::existing() const {
    for (unsigned int number = 0; number <= limits_.kept; ++number) {
        if (exists(pathOf(number))) {
            return pathOf(number);
        }
    }
    return {};
}

std::string RotatingFile::open(const std::string& head, bool replace) {
    head_ = head;
    if (path_ == "-") {
        fd_.reset(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3));
        return fd_.isOpen() ? write(head_) : problem("cannot be written");
    }
    const std::string found = replace ? std::string() : existing();
    if (!found.empty()) {
        return "-o " + path_ + ": " + found +
               " exists already; name another file, or replace it with --force";
    }
    std::string trouble = begin(replace ? O_TRUNC : O_EXCL);
    if (!trouble.empty() || !isRegular_) {
        return trouble;
    }
    for (unsigned int number = 1; number <= limits_.kept; ++number) {
        unlink(pathOf(number).c_str());
    }
    return {};
}

std::string RotatingFile::begin(int flags) {
    fd_.reset(::open(path_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | flags, 0644));
    if (!fd_.isOpen()) {
        return problem("cannot be created");
    }
    isRegular_ = isRegularFile(fd_.get());
    fileBytes_ = 0;
    return write(head_);
}

std::string RotatingFile::rotate() {
    for (unsigned int number = limits_.kept; number > 0; --number) {
        const std::string from = pathOf(number - 1);
        if (rename(from.c_str(), pathOf(number).c_str()) != 0 && errno != ENOENT) {
            return problem(from + " cannot be renamed");
        }
    }
    ++rotations_;
    return begin(limits_.kept == 0 ? O_TRUNC : O_EXCL);
}

std::string RotatingFile::writeLine(const std::string& line) {
    const bool isLong = fileBytes_ + line.size() + 1 > limits_.fileBytes;
    if (isRegular_ && isLong && fileBytes_ > head_.size()) {
        std::string trouble = rotate();
        if (!trouble.empty()) {
            return trouble;
        }
    }
    return write(line + "\n");
}

/** All of it or nothing: half a line is taken back, so that what stands in the file can be read. */
std::string RotatingFile::write(const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t count = ::write(fd_.get(), text.data() + done, text.size() - done);
        if (count < 0 && errno != EINTR) {
            std::string trouble = problem("cannot be written");
            if (isRegular_ && done > 0 &&
                ftruncate(fd_.get(), static_cast<off_t>(fileBytes_)) != 0) {
                trouble += "; its last line is cut";
            }
            return trouble;
        }
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    fileBytes_ += text.size();
    writtenBytes_ += text.size();
    return {};
}

std::string RotatingFile::close() {
    std::string trouble = isRegular_ && fsync(fd_.get()) != 0 ? problem("cannot be written") : "";
    fd_.reset();
    return trouble;
}

}  // namespace tsyn
