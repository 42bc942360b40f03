// Breaks off a call that would take too long, from another thread, as a Cancel button does. The
// session can be used again afterwards.

#include "Login.h"

#include <chrono>
#include <thread>

int main(int argc, char** argv)
{
    if (argc != 1 + Login::argumentCount) {
        std::cerr << "usage: " << argv[0] << ' ' << Login::usage << '\n';
        return 2;
    }
    const Login login = Login::fromArguments(argv + 1);
    Tarnis::SSHSession session;
    if (!logIn(session, login)) {
        return 1;
    }

    std::thread cancelButton([&session] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        session.interrupt();
    });
    const auto result = session.execute("sleep 3600");
    cancelButton.join();
    if (result.outcome != Tarnis::SSHExecuteResult::Outcome::ConnectionLost) {
        std::cerr << "the command was not broken off: " << result.error << '\n';
        return 1;
    }
    std::cout << "cancelled\n";

    if (!logIn(session, login)) {
        return 1;
    }
    const auto again = session.execute("echo connected again");
    std::cout << again.output;
    if (!again.succeeded()) {
        std::cerr << "the command failed: " << again.error << '\n';
        return 1;
    }
    return 0;
}
