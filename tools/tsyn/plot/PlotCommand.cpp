#include "tools/tsyn/plot/PlotCommand.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tools/common/OwnDescriptor.h"
#include "tools/tsyn/Failure.h"
#include "tools/tsyn/plot/PageReport.h"
#include "tools/tsyn/plot/PictureReport.h"

namespace tsyn {
namespace {

std::string writeAll(int fd, const std::string& text) {
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t count = write(fd, text.data() + done, text.size() - done);
        if (count < 0 && errno != EINTR) {
            return std::string("cannot be written (") + std::strerror(errno) +
                   "); free some space or name a file elsewhere";
        }
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    return {};
}

std::string openProblem() {
    if (errno == EEXIST) {
        return "exists already; name another file, or replace it with --force";
    }
    return std::string("cannot be created (") + std::strerror(errno) +
           "); name a file in a folder that can be written";
}

/** Under another name until it is whole, so that a failure replaces nothing. */
std::string writeReport(const PlotOptions& options, const Report& report) {
    if (!options.replaces && access(options.output.c_str(), F_OK) == 0) {
        errno = EEXIST;
        return openProblem();
    }
    constexpr mode_t kReadableByAll = 0644;
    std::string part = options.output + ".XXXXXX";
    const tools::OwnDescriptor fd(mkostemp(part.data(), O_CLOEXEC));
    if (!fd.isOpen() || fchmod(fd.get(), kReadableByAll) != 0) {
        return openProblem();
    }
    std::string problem = options.isPicture() ? drawPicture(report, fd.get())
                                              : writeAll(fd.get(), reportPage(report));
    if (problem.empty() && rename(part.c_str(), options.output.c_str()) != 0) {
        problem = openProblem();
    }
    if (!problem.empty()) {
        unlink(part.c_str());
    }
    return problem;
}

}  // namespace

int plotCommand(const PlotOptions& options) {
    std::signal(SIGXFSZ, SIG_IGN);
    PlotInput input;
    for (const std::string& file : options.files) {
        const std::string problem = addFile(input, file);
        if (!problem.empty()) {
            return fail(problem);
        }
    }
    joinSources(input);
    const std::string problem =
        writeReport(options, makeReport(input, options.points, options.shiftS));
    if (!problem.empty()) {
        return fail("-o " + options.output + ": " + problem);
    }
    for (const std::string& damage : input.damages) {
        std::fprintf(stderr, "tsyn: %s\n", damage.c_str());
    }
    return 0;
}

}  // namespace tsyn
