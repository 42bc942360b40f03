#pragma once

#include "support/TemporaryDirectory.h"

#include <functional>
#include <string>

#include <sys/types.h>

namespace TarnisTest {

/// A copy of this program that does one thing and then waits to be killed: it runs no destructor,
/// as when a test crashes. It does not outlive the original.
class ForkedProgram
{
public:
    /// Tells the original something and does not return.
    using AnswerAndWait = std::function<void(const std::string& answer)>;
    /// What the copy does; it ends by calling its argument.
    using Task = std::function<void(const AnswerAndWait& answerAndWait)>;

    /// Returns when the copy has answered; throws std::runtime_error when it does not.
    explicit ForkedProgram(const Task& task);
    ForkedProgram(const ForkedProgram&) = delete;
    ForkedProgram& operator=(const ForkedProgram&) = delete;
    ~ForkedProgram();

    pid_t pid() const { return pid_; }

    const std::string& answer() const { return answer_; }

    /// Sends a signal that ends the copy, and returns when it is gone.
    void endBy(int signal);

private:
    [[noreturn]] void run(const Task& task) const;

    std::string answerFile() const { return directory_.file("answer"); }

    TemporaryDirectory directory_;
    pid_t pid_ = 0;
    std::string answer_;
};

} // namespace TarnisTest
