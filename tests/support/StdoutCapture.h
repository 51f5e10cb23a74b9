#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

/** One line of the library's log, taken apart. */
struct LogLine {
    std::string level;
    long long seconds = 0;
    long long nanoseconds = 0;
    std::string file;
    int line = 0;
    std::string function;
    std::string text;  ///< behind the prefix, without its newline
};

/** The lines of text that have the log's prefix, in order. */
std::vector<LogLine> logLines(const std::string& text);

/** How often a part occurs in a text, without overlaps. */
int occurrences(const std::string& text, const std::string& part);

/** What an action prints on standard output. */
std::string printedBy(const std::function<void()>& action);

/** While it lives, standard output (or another descriptor) goes to a file of its own. */
class StdoutCapture {
public:
    static constexpr std::chrono::seconds kPatience{20};

    explicit StdoutCapture(int descriptor = 1);
    ~StdoutCapture();
    StdoutCapture(const StdoutCapture&) = delete;
    StdoutCapture& operator=(const StdoutCapture&) = delete;

    /** What was written so far, with what stdio still holds. */
    std::string text() const;

    /** What reached the file without a flush by the reader. */
    std::string writtenText() const;

    /** The log lines so far. */
    std::vector<LogLine> lines() const { return logLines(text()); }

    /** Texts of the log lines so far. */
    std::vector<std::string> texts() const;

    /** Number of times that a part occurs so far. */
    int count(const std::string& part) const;

    /** Waits until a part has occurred so many times; false when patience ends. */
    bool await(const std::string& part, int times = 1,
               std::chrono::milliseconds patience = kPatience) const;

private:
    int watch() const;

    int descriptor_;
    int saved_;
    int file_;
    mutable int watch_ = -1; /**< from the first await on: a watch takes milliseconds to close */
};
