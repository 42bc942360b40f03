#include "support/selftest/ForkedProgram.h"

#include "support/SystemError.h"
#include "support/WaitUntil.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace TarnisTest {

namespace {

[[noreturn]] void waitForEver()
{
    while (true) {
        ::pause();
    }
}

} // namespace

ForkedProgram::ForkedProgram(const Task& task)
    : pid_(::fork())
{
    if (pid_ < 0) {
        throwErrno("fork");
    }
    if (pid_ == 0) {
        run(task);
    }
    if (!waitUntil([this] { return std::filesystem::exists(answerFile()); })) {
        endBy(SIGKILL);
        throw std::runtime_error("the forked program does not answer");
    }
    answer_ = readFile(answerFile());
}

ForkedProgram::~ForkedProgram()
{
    endBy(SIGKILL);
}

void ForkedProgram::run(const Task& task) const
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    // A shell that runs the tests in the background has them ignore it.
    (void)std::signal(SIGINT, SIG_DFL);
    try {
        task([this](const std::string& answer) {
            std::ofstream(answerFile() + ".new") << answer;
            std::filesystem::rename(answerFile() + ".new", answerFile());
            waitForEver();
        });
    } catch (const std::exception& error) {
        std::ofstream(answerFile()) << error.what();
    }
    ::_exit(1);
}

void ForkedProgram::endBy(int signal)
{
    if (pid_ > 0) {
        ::kill(pid_, signal);
        while (::waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
        }
    }
    pid_ = 0;
}

} // namespace TarnisTest
