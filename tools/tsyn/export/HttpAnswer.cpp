#include "tools/tsyn/export/HttpAnswer.h"

#include <sstream>

namespace tsyn {
namespace {

constexpr const char* kPlain = "text/plain; charset=utf-8";
constexpr const char* kMetrics = "text/plain; version=0.0.4; charset=utf-8";

std::string answer(const char* status, const char* type, const std::string& body,
                   const char* moreHeaders = "") {
    return std::string("HTTP/1.1 ") + status + "\r\nContent-Type: " + type +
           "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" + moreHeaders +
           "Connection: close\r\n\r\n" + body;
}

bool isWhole(const std::string& input) {
    return input.find("\r\n\r\n") != std::string::npos || input.find("\n\n") != std::string::npos;
}

}  // namespace

std::optional<std::string> httpAnswer(const std::string& input,
                                      const std::function<std::string()>& metrics) {
    if (input.size() > kMostHttpRequestBytes) {
        return answer("431 Request Header Fields Too Large", kPlain, "the request is too long\n");
    }
    if (!isWhole(input)) {
        return {};
    }
    std::istringstream line(input.substr(0, input.find('\n')));
    std::string method;
    std::string target;
    std::string version;
    std::string more;
    line >> method >> target >> version;
    if (version.compare(0, 7, "HTTP/1.") != 0 || target.front() != '/' || line >> more) {
        return answer("400 Bad Request", kPlain, "no request of HTTP/1.1\n");
    }
    const std::string path = target.substr(0, target.find('?'));
    const bool isMetrics = path == "/metrics";
    if (!isMetrics && path != "/healthz") {
        return answer("404 Not Found", kPlain, "there are /metrics and /healthz\n");
    }
    if (method != "GET") {
        return answer("405 Method Not Allowed", kPlain, "only GET\n", "Allow: GET\r\n");
    }
    return isMetrics ? answer("200 OK", kMetrics, metrics()) : answer("200 OK", kPlain, "ok\n");
}

}  // namespace tsyn
