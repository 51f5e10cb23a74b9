#pragma once

#include <functional>
#include <optional>
#include <string>

namespace tsyn {

/** A request that is longer is refused. */
constexpr std::size_t kMostHttpRequestBytes = 8192;

/** The whole answer to what a client sent so far: the metrics on GET /metrics, "ok" on
 *  GET /healthz. Nothing while the end of the request is still to come. */
std::optional<std::string> httpAnswer(const std::string& input,
                                      const std::function<std::string()>& metrics);

}  // namespace tsyn
