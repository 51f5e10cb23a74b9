#pragma once

#include <toml++/toml.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/simulate/Scenario.h"

namespace simulate {

/** What is wrong with one file, each mistake with its line. */
class Problems {
public:
    explicit Problems(std::string file) : file_(std::move(file)) {}

    void add(unsigned line, const std::string& text);
    bool none() const { return found_.empty(); }

    /** "FILE:LINE: text" in the order of the lines. */
    std::vector<std::string> lines() const;

private:
    std::string file_;
    std::vector<std::pair<unsigned, std::string>> found_;
};

/** "a, b or c" */
std::string listed(const std::vector<std::string>& words, const char* last = " or ");

/** One table of the file, read key by key. A key that is missing gives nothing; one that is wrong
 *  gives nothing too and a line in the problems that says what is allowed. */
class Fields {
public:
    /** `where` begins each line, such as "[[node]]", or empty at the top of the file. The table
     * must outlive this. */
    Fields(const toml::table& table, std::string where, Problems& problems)
        : table_(table), where_(std::move(where)), problems_(problems) {}

    unsigned line() const { return table_.source().begin.line; }
    unsigned lineOf(const std::string& key) const;
    bool has(const std::string& key) const { return table_.contains(key); }

    /** The text of a key that holds one; of any other value it says nothing. */
    std::optional<std::string> peek(const std::string& key);

    /** What must be there; tells of it when it is not. */
    bool require(const std::string& key, const std::string& advice);

    std::optional<std::string> text(const std::string& key);
    std::optional<std::string> choice(const std::string& key,
                                      const std::vector<std::string>& allowed);
    /** An array of texts, or a single one. */
    std::optional<std::vector<std::string>> texts(const std::string& key);
    /** A table of texts. */
    Settings settings(const std::string& key);
    std::optional<std::int64_t> integer(const std::string& key, std::int64_t least,
                                        std::int64_t most);
    std::optional<double> number(const std::string& key, double least, double most);
    std::optional<bool> flag(const std::string& key);
    /** In nanoseconds. */
    std::optional<std::uint64_t> duration(const std::string& key);
    /** In nanoseconds since 1970. */
    std::optional<std::uint64_t> instant(const std::string& key);
    /** A number, which is the most, or { min, max }. The unit, if any, is for who writes another.
     */
    std::optional<Bound> bound(const std::string& key, bool negative, const std::string& unit);
    /** The same of durations, in seconds. */
    std::optional<Bound> durationBound(const std::string& key);

    /** A number, or { from, to } that is spread over `count`; whole unless `decimals`. */
    std::vector<double> spread(const std::string& key, double least, double most, std::size_t count,
                               bool decimals);

    /** The tables of [[key]]. */
    std::vector<const toml::table*> tables(const std::string& key);
    /** The table of [key]. */
    const toml::table* table(const std::string& key);

    /** Says what is wrong with a key. */
    void wrong(const std::string& key, const std::string& text);
    /** Names each key that nobody asked for and that is not allowed besides. */
    void finish(const std::vector<std::string>& besides = {});

    Problems& problems() { return problems_; }

private:
    const toml::node* find(const std::string& key);
    std::string called(const std::string& key) const;
    std::optional<double> numberOf(const toml::node* value, const std::string& key, double least,
                                   double most, const std::string& kind);
    std::optional<std::uint64_t> durationOf(const toml::node* value, const std::string& key);
    template <typename Read>
    std::optional<Bound> boundBy(const std::string& key, Read read);

    const toml::table& table_;
    std::string where_;
    Problems& problems_;
    std::vector<std::string> known_;
};

}  // namespace simulate
