#include "tests/support/StdoutCapture.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace {

using Clock = std::chrono::steady_clock;

int checked(int descriptor, const char* action) {
    if (descriptor < 0) {
        throw std::runtime_error(std::string("output capture: cannot ") + action);
    }
    return descriptor;
}

/** Takes "[level] [s.nnnnnnnnn] <file/line->function()>text" apart; false for any other line. */
bool parsePrefix(const std::string& line, LogLine& parsed) {
    static const std::regex prefix(
        R"(^\[([^\]]+)\] \[(-?\d+)\.(\d{9})\] <([^/>-][^>-]*)/(\d+)->([^(]+)\(\)>)");
    std::smatch parts;
    if (!std::regex_search(line, parts, prefix)) {
        return false;
    }
    parsed.level = parts[1];
    parsed.seconds = std::stoll(parts[2]);
    parsed.nanoseconds = std::stoll(parts[3]);
    parsed.file = parts[4];
    parsed.line = std::stoi(parts[5]);
    parsed.function = parts[6];
    parsed.text = parts.suffix();
    return true;
}

}  // namespace

std::vector<LogLine> logLines(const std::string& text) {
    std::vector<LogLine> result;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        LogLine parsed;
        if (parsePrefix(line, parsed)) {
            result.push_back(parsed);
        }
    }
    return result;
}

int occurrences(const std::string& text, const std::string& part) {
    int times = 0;
    for (std::size_t at = text.find(part); at != std::string::npos;
         at = text.find(part, at + part.size())) {
        ++times;
    }
    return times;
}

std::string printedBy(const std::function<void()>& action) {
    const StdoutCapture output;
    action();
    return output.text();
}

StdoutCapture::StdoutCapture(int descriptor) : descriptor_(descriptor) {
    std::fflush(nullptr);
    char path[] = "/tmp/zeb-output-XXXXXX";
    file_ = checked(mkostemp(path, O_APPEND | O_CLOEXEC), "make a file in /tmp");
    unlink(path);
    saved_ = checked(fcntl(descriptor_, F_DUPFD_CLOEXEC, 3), "keep the output");
    checked(dup2(file_, descriptor_), "redirect the output");
}

StdoutCapture::~StdoutCapture() {
    std::fflush(nullptr);
    dup2(saved_, descriptor_);
    if (testing::Test::HasFailure()) {
        // What went wrong was reported into the capture.
        std::fprintf(stderr, "captured output:\n%s", writtenText().c_str());
    }
    close(saved_);
    if (watch_ >= 0) {
        close(watch_);
    }
    close(file_);
}

std::string StdoutCapture::text() const {
    std::fflush(nullptr);
    return writtenText();
}

std::string StdoutCapture::writtenText() const {
    struct stat status {};
    fstat(file_, &status);
    std::string text(static_cast<std::size_t>(status.st_size), '\0');
    const ssize_t count = pread(file_, text.data(), text.size(), 0);
    text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return text;
}

std::vector<std::string> StdoutCapture::texts() const {
    std::vector<std::string> result;
    for (const LogLine& line : lines()) {
        result.push_back(line.text);
    }
    return result;
}

int StdoutCapture::count(const std::string& part) const {
    return occurrences(text(), part);
}

int StdoutCapture::watch() const {
    if (watch_ < 0) {
        const std::string path = "/proc/self/fd/" + std::to_string(file_);
        watch_ = checked(inotify_init1(IN_CLOEXEC | IN_NONBLOCK), "watch a file");
        checked(inotify_add_watch(watch_, path.c_str(), IN_MODIFY), "watch a file");
    }
    return watch_;
}

bool StdoutCapture::await(const std::string& part, int times,
                          std::chrono::milliseconds patience) const {
    const Clock::time_point deadline = Clock::now() + patience;
    for (;;) {
        // Emptied before the look, so that no later change is missed.
        alignas(inotify_event) char events[4096];
        while (read(watch(), events, sizeof events) > 0) {
        }
        if (count(part) >= times) {
            return true;
        }
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        pollfd changed{watch(), POLLIN, 0};
        if (left.count() <= 0 || poll(&changed, 1, static_cast<int>(left.count())) == 0) {
            return count(part) >= times;
        }
    }
}
