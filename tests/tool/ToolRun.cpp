#include "tool/ToolRun.h"

#include "support/Preload.h"
#include "support/SystemError.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string_view>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace TarnisTest {

namespace {

// Above whatever a test names for a descriptor of its own.
constexpr int kPrivateDescriptors = 200;

struct PipeEnds
{
    UniqueFd read;
    UniqueFd write;
};

PipeEnds makePipe()
{
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        throwErrno("pipe2");
    }
    return {UniqueFd(ends[0]), UniqueFd(ends[1])};
}

void writeAll(int descriptor, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t count = ::write(descriptor, text.data(), text.size());
        if (count < 0 && errno != EINTR) {
            throwErrno("write");
        }
        text.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : 0);
    }
}

UniqueFd openFile(const std::string& path, int flags)
{
    UniqueFd file(::open(path.c_str(), flags | O_CLOEXEC, 0600));
    if (!file.isOpen()) {
        throwErrno("open");
    }
    return file;
}

/// Nothing of the test's own environment, and no way to the real user's keys.
std::vector<std::string> shieldedEnvironment(const TemporaryDirectory& home)
{
    std::vector<std::string> environment{
        "PATH=/usr/local/bin:/usr/bin:/bin",
        "HOME=" + home.path().string(),
        "TERM=xterm",
        // The shield comes before the sanitizer's own library, and does no harm there.
        "ASAN_OPTIONS=verify_asan_link_order=0",
    };
    for (std::string& variable : preloading(TARNIS_HOME_SHIELD)) {
        environment.push_back(std::move(variable));
    }
    return environment;
}

/// As exec takes it; lends the strings.
std::vector<char*> pointersTo(std::vector<std::string>& strings)
{
    std::vector<char*> pointers;
    pointers.reserve(strings.size() + 1);
    for (std::string& text : strings) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

void resetSignals(bool ignoresInterrupts)
{
    sigset_t none{};
    sigemptyset(&none);
    ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    ::sigaction(SIGPIPE, &action, nullptr);
    action.sa_handler = ignoresInterrupts ? SIG_IGN : SIG_DFL;
    ::sigaction(SIGINT, &action, nullptr);
}

} // namespace

/// Everything that the child needs, made before the fork: between fork and exec it may not even
/// allocate memory.
struct ToolRun::Launch
{
    static constexpr int closed = -1;
    static constexpr int terminal = -2;

    /// Lends a descriptor that is out of the way of those that the child gets.
    int keep(const UniqueFd& descriptor)
    {
        kept.emplace_back(::fcntl(descriptor.get(), F_DUPFD_CLOEXEC, kPrivateDescriptors));
        return kept.back().get();
    }

    std::vector<char*> arguments{};
    std::vector<char*> environment{};
    const char* terminalName = nullptr;
    const char* workingDirectory = nullptr;
    /// Standard input, output and error output: a descriptor, `closed` or `terminal`.
    std::array<int, 3> streams{closed, closed, closed};
    /// More of them: what they are, and the numbers that the child has for them.
    std::vector<std::pair<int, int>> descriptors{};
    std::vector<UniqueFd> kept{};
    bool ignoresInterrupts = false;
};

void ToolRun::become(const Launch& launch)
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    resetSignals(launch.ignoresInterrupts);
    ::setsid();
    // The first terminal that a session leader opens becomes the controlling one.
    const int terminal = launch.terminalName != nullptr
                             ? ::open(launch.terminalName, O_RDWR | O_CLOEXEC)
                             : Launch::closed;
    int number = 0;
    for (const int stream : launch.streams) {
        ::close(number);
        ::dup2(stream == Launch::terminal ? terminal : stream, number);
        ++number;
    }
    for (const auto& [from, to] : launch.descriptors) {
        ::dup2(from, to);
    }
    if (launch.workingDirectory != nullptr && ::chdir(launch.workingDirectory) != 0) {
        ::_exit(126);
    }
    ::execve(launch.arguments.front(), launch.arguments.data(), launch.environment.data());
    ::_exit(127);
}

ToolRun::ToolRun(const TemporaryDirectory& home, const ToolSetup& setup)
{
    std::vector<std::string> arguments = setup.arguments;
    arguments.insert(arguments.begin(),
                     setup.program.empty() ? std::string(TARNIS_TOOL) : setup.program);
    std::vector<std::string> environment = shieldedEnvironment(home);
    environment.insert(environment.end(), setup.environment.begin(), setup.environment.end());
    if (setup.hasTerminal) {
        openTerminal();
    }

    Launch launch;
    launch.arguments = pointersTo(arguments);
    launch.environment = pointersTo(environment);
    launch.terminalName = setup.hasTerminal ? terminalName_.c_str() : nullptr;
    launch.workingDirectory =
        setup.workingDirectory.empty() ? nullptr : setup.workingDirectory.c_str();
    launch.ignoresInterrupts = setup.ignoresInterrupts;
    openStreams(setup, launch);
    start(launch);
}

void ToolRun::openStreams(const ToolSetup& setup, Launch& launch)
{
    auto& [input, output, errorOutput] = launch.streams;
    if (setup.inputKind == Input::Terminal) {
        input = Launch::terminal;
    } else if (setup.inputKind != Input::Closed) {
        input = launch.keep(openInput(setup));
    }
    if (setup.outputsToTerminal) {
        output = Launch::terminal;
    } else if (setup.outputDescriptor) {
        output = *setup.outputDescriptor;
    } else {
        output = launch.keep(openOutput("output"));
    }
    const int errors = launch.keep(openOutput("errors"));
    errorOutput = setup.closesErrors ? Launch::closed : errors;
    if (setup.errorsToTerminal) {
        errorOutput = Launch::terminal;
    }
    for (const auto& [number, text] : setup.descriptors) {
        const PipeEnds pipe = makePipe();
        writeAll(pipe.write.get(), text);
        launch.descriptors.emplace_back(launch.keep(pipe.read), number);
    }
}

void ToolRun::start(const Launch& launch)
{
    pid_ = ::fork();
    if (pid_ < 0) {
        throwErrno("fork");
    }
    if (pid_ == 0) {
        become(launch);
    }
}

ToolRun::~ToolRun()
{
    if (!exitCode_) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
}

UniqueFd ToolRun::openOutput(const char* name) const
{
    return openFile(files_.file(name), O_WRONLY | O_CREAT | O_APPEND);
}

UniqueFd ToolRun::openInput(const ToolSetup& setup)
{
    switch (setup.inputKind) {
    case Input::File:
        return openFile(files_.write("input", setup.input), O_RDONLY);
    case Input::Directory:
        return openFile(files_.path().string(), O_RDONLY);
    case Input::Pipe: {
        PipeEnds pipe = makePipe();
        inputEnd_ = std::move(pipe.write);
        return std::move(pipe.read);
    }
    default:
        return openFile("/dev/null", O_RDONLY);
    }
}

void ToolRun::openTerminal()
{
    terminal_.reset(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
    std::array<char, 128> name{};
    if (!terminal_.isOpen() || ::grantpt(terminal_.get()) != 0 ||
        ::unlockpt(terminal_.get()) != 0 ||
        ::ptsname_r(terminal_.get(), name.data(), name.size()) != 0) {
        throwErrno("posix_openpt");
    }
    terminalName_ = name.data();
}

void ToolRun::signal(int number) const
{
    ::kill(pid_, number);
}

void ToolRun::writeInput(const std::string& text) const
{
    writeAll(inputEnd_.get(), text);
}

void ToolRun::type(const std::string& text) const
{
    writeAll(terminal_.get(), text);
}

std::string ToolRun::screen()
{
    std::array<char, 4096> buffer{};
    for (;;) {
        const ssize_t count = ::read(terminal_.get(), buffer.data(), buffer.size());
        if (count <= 0) {
            return screen_;
        }
        screen_.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

bool ToolRun::waitForScreen(const std::string& text, int times)
{
    return waitUntil([&] {
        const std::string seen = screen();
        int count = 0;
        for (auto at = seen.find(text); at != std::string::npos; at = seen.find(text, at + 1)) {
            ++count;
        }
        return count >= times;
    });
}

bool ToolRun::terminalEchoes() const
{
    termios attributes{};
    if (::tcgetattr(terminal_.get(), &attributes) != 0) {
        throwErrno("tcgetattr");
    }
    return (attributes.c_lflag & static_cast<tcflag_t>(ECHO)) != 0;
}

std::string ToolRun::output() const
{
    return readFile(files_.file("output"));
}

std::string ToolRun::errorOutput() const
{
    return readFile(files_.file("errors"));
}

bool ToolRun::waitForOutput(const std::string& text) const
{
    return waitUntil([&] { return output().find(text) != std::string::npos; });
}

int ToolRun::wait(std::chrono::milliseconds limit)
{
    int status = 0;
    if (!exitCode_ && waitUntil([&] { return ::waitpid(pid_, &status, WNOHANG) == pid_; }, limit)) {
        exitCode_ = WIFSIGNALED(status) ? kEndedBySignal + WTERMSIG(status) : WEXITSTATUS(status);
    }
    return exitCode_.value_or(-1);
}

} // namespace TarnisTest
