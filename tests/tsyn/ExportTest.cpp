#include <gtest/gtest.h>

#include "tests/tsyn/Records.h"
#include "tools/tsyn/export/HttpAnswer.h"
#include "tools/tsyn/export/MetricsText.h"

namespace {

using records::lookAt;

std::string textOf(const gPtpTimeDataStruct& record, const tsyn::Owner& owner,
                   const std::string& source = "eth1") {
    tsyn::DaemonState daemon(true, 1.5);
    daemon.update(lookAt(record, 5.5));
    return tsyn::metricsText(source, daemon, owner, 37);
}

bool has(const std::string& text, const std::string& line) {
    return text.find(line + "\n") != std::string::npos;
}

TEST(Metrics, OfAStandardSlave) {
    const std::string text =
        textOf(records::with(records::slave(9, 5), records::quality(TSYN_STATE_SYNCHRONISED, 60)),
               records::kOwner);
    EXPECT_TRUE(has(text, "# TYPE tsyn_sync_accepted_total counter")) << text;
    for (const char* const line : {
             "tsyn_up{interface=\"eth1\"} 1",
             "tsyn_synchronised{interface=\"eth1\"} 1",
             "tsyn_owner_up{interface=\"eth1\"} 1",
             "tsyn_state{interface=\"eth1\",state=\"synchronised\"} 1",
             "tsyn_state{interface=\"eth1\",state=\"lost\"} 0",
             ("tsyn_daemon_info{interface=\"eth1\",role=\"slave\",profile=\"standard\","
              "master=\"0000000000000000\"} 1"),
             "tsyn_master_offset_seconds{interface=\"eth1\"} 1.5",
             "tsyn_rate_ratio{interface=\"eth1\"} 0.999963",
             "tsyn_link_delay_seconds{interface=\"eth1\"} 5e-07",
             "tsyn_last_sync_age_seconds{interface=\"eth1\"} 0.5",
             "tsyn_error_bound_seconds{interface=\"eth1\"} 2e-07",
             "tsyn_error_bound_void_after_seconds{interface=\"eth1\"} 1767225660",
             "tsyn_timescale{interface=\"eth1\",timescale=\"utc\"} 1",
             "tsyn_timescale{interface=\"eth1\",timescale=\"own\"} 0",
             "tsyn_sync_accepted_total{interface=\"eth1\"} 9",
             "tsyn_steps_total{interface=\"eth1\"} 0",
         }) {
        EXPECT_TRUE(has(text, line)) << line << "\nis not in\n" << text;
    }
}

TEST(Metrics, LeaveOutWhatADeployedDaemonDoesNotTell) {
    const std::string text = textOf(records::slave(9, 5), {});
    EXPECT_EQ(std::string::npos, text.find("tsyn_error_bound")) << text;
    EXPECT_EQ(std::string::npos, text.find("tsyn_owner_up")) << text;
    EXPECT_EQ(std::string::npos, text.find("tsyn_steps")) << text;
    EXPECT_TRUE(has(text, "tsyn_timescale{interface=\"eth1\",timescale=\"utc\"} 1")) << text;
    EXPECT_TRUE(has(text, "tsyn_synchronised{interface=\"eth1\"} 1")) << text;
}

TEST(Metrics, TellAnEpochOfItsOwnAndWhenItsBoundIsVoid) {
    gPtpTimeDataStruct slave = records::slave(9, 5);
    slave.masterOffset += 1000 * records::kSecond;
    slave.originTime -= 1000ULL * records::kSecond;
    gPtpTimeQuality quality = records::quality(TSYN_STATE_HOLDOVER, 5);
    quality.stepCount = 3;
    const std::string text = textOf(records::with(slave, quality), records::kOwner);
    for (const char* const line : {
             "tsyn_timescale{interface=\"eth1\",timescale=\"own\"} 1",
             "tsyn_timescale{interface=\"eth1\",timescale=\"utc\"} 0",
             "tsyn_steps_total{interface=\"eth1\"} 3",
             "tsyn_error_bound_void_after_seconds{interface=\"eth1\"} 1767225605",
         }) {
        EXPECT_TRUE(has(text, line)) << line << "\nis not in\n" << text;
    }
    EXPECT_EQ(std::string::npos, text.find("tsyn_error_bound_seconds")) << text;
    EXPECT_EQ(std::string::npos, text.find("tsyn_system_clock_offset")) << text;
}

TEST(Metrics, OfADaemonThatEndedAreDown) {
    const std::string text = textOf(records::slave(9, 5), {77, tsyn::Owner::Life::kEnded, "tsyn"});
    EXPECT_TRUE(has(text, "tsyn_up{interface=\"eth1\"} 0")) << text;
    EXPECT_TRUE(has(text, "tsyn_synchronised{interface=\"eth1\"} 0")) << text;
    EXPECT_TRUE(has(text, "tsyn_owner_up{interface=\"eth1\"} 0")) << text;
}

TEST(Metrics, NameAnyInterface) {
    EXPECT_TRUE(has(textOf(records::slave(9, 5), records::kOwner, "a\"b\\c\nd"),
                    R"(tsyn_up{interface="a\"b\\c\nd"} 1)"));
}

std::string answerTo(const std::string& request) {
    return tsyn::httpAnswer(request, [] { return "some_metrics 1\n"; }).value_or("(nothing yet)");
}

std::string statusOf(const std::string& request) {
    const std::string answer = answerTo(request);
    return answer.substr(0, answer.find('\r'));
}

TEST(HttpAnswer, HasTheMetricsAndTheirLength) {
    EXPECT_EQ(
        "HTTP/1.1 200 OK\r\nContent-Type: text/plain; version=0.0.4; charset=utf-8\r\n"
        "Content-Length: 15\r\nConnection: close\r\n\r\nsome_metrics 1\n",
        answerTo("GET /metrics?x=1 HTTP/1.1\r\nHost: a\r\n\r\n"));
    EXPECT_EQ("HTTP/1.1 200 OK", statusOf("GET /healthz HTTP/1.0\n\n"));
}

TEST(HttpAnswer, WaitsForTheEndOfTheRequest) {
    EXPECT_EQ("(nothing yet)", answerTo(""));
    EXPECT_EQ("(nothing yet)", answerTo("GET /metrics HTTP/1.1\r\nHost: a\r\n"));
}

TEST(HttpAnswer, RefusesAnythingElse) {
    EXPECT_EQ("HTTP/1.1 404 Not Found", statusOf("GET / HTTP/1.1\r\n\r\n"));
    EXPECT_EQ("HTTP/1.1 404 Not Found", statusOf("GET /metricsx HTTP/1.1\r\n\r\n"));
    EXPECT_EQ("HTTP/1.1 405 Method Not Allowed", statusOf("POST /metrics HTTP/1.1\r\n\r\n"));
    for (const char* const request :
         {"\r\n\r\n", "GET\r\n\r\n", "GET /metrics\r\n\r\n", "GET metrics HTTP/1.1\r\n\r\n",
          "GET /metrics HTTP/2\r\n\r\n", "GET /metrics HTTP/1.1 more\r\n\r\n"}) {
        EXPECT_EQ("HTTP/1.1 400 Bad Request", statusOf(request)) << request;
    }
    EXPECT_EQ("HTTP/1.1 431 Request Header Fields Too Large",
              statusOf(std::string(tsyn::kMostHttpRequestBytes + 1, 'x')));
}

}  // namespace
