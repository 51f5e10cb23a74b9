#include <gtest/gtest.h>

#include "tests/simulate/Runs.h"

/** What the page on runs in simulated time shows. */

namespace {

std::string example() {
    const std::string page = contents(ZEB_PAGE);
    const std::string begin = "```toml\n";
    const std::size_t at = page.find(begin) + begin.size();
    return page.substr(at, page.find("```\n", at) - at);
}

TEST(TheExampleOfThePage, HoldsItsLimits) {
    const Folder folder;
    const fs::path file = folder.write("example.toml", example());
    const Ran ran = simulateWith(
        folder, file.string() + " --no-picture --seeds 1..5 --out " + (folder / "out").string());
    EXPECT_EQ(ran.status, 0) << ran.out << ran.errors;
    EXPECT_TRUE(fs::exists(folder / "out" / "example" / "seed-5" / "report.json"));
}

}  // namespace
