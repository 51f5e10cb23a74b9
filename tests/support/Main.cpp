#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

namespace {

/** The library's state is process-wide and no case may meet what another one left: a run of
 *  several cases gives each a process of its own, as ctest does. */
class ProcessPerCase : public testing::EmptyTestEventListener {
public:
    explicit ProcessPerCase(std::vector<std::string> arguments)
        : arguments_(std::move(arguments)) {}

    void OnTestProgramStart(const testing::UnitTest& program) override {
        if (program.test_to_run_count() < 2) {
            return;
        }
        for (int i = 0; i < program.total_test_suite_count(); ++i) {
            const testing::TestSuite& suite = *program.GetTestSuite(i);
            for (int j = 0; j < suite.total_test_count(); ++j) {
                const testing::TestInfo& test = *suite.GetTestInfo(j);
                if (test.should_run()) {
                    runAlone(std::string(suite.name()) + "." + test.name());
                }
            }
        }
        for (const std::string& name : failed_) {
            std::printf("failed: %s\n", name.c_str());
        }
        std::printf("%d cases, %zu failed\n", program.test_to_run_count(), failed_.size());
        std::fflush(nullptr);
        _exit(failed_.empty() ? 0 : 1);
    }

private:
    void runAlone(const std::string& name) {
        std::printf("%s\n", name.c_str());
        std::fflush(nullptr);
        const pid_t child = fork();
        if (child == 0) {
            arguments_.push_back("--gtest_filter=" + name);
            arguments_.emplace_back("--gtest_brief=1");
            std::vector<char*> pointers;
            for (std::string& argument : arguments_) {
                pointers.push_back(argument.data());
            }
            pointers.push_back(nullptr);
            execv("/proc/self/exe", pointers.data());
            _exit(127);
        }
        int status = -1;
        if (waitpid(child, &status, 0) != child || status != 0) {
            failed_.push_back(name);
        }
    }

    std::vector<std::string> arguments_;
    std::vector<std::string> failed_;
};

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> arguments(argv, argv + argc);
    testing::InitGoogleMock(&argc, argv);
    // The list takes the ownership.
    testing::UnitTest::GetInstance()->listeners().Append(new ProcessPerCase(std::move(arguments)));
    return RUN_ALL_TESTS();
}
