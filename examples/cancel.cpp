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
        std::cerr << "the command was not broken off\n";
        return 1;
    }
    std::cout << "cancelled\n";

    if (!logIn(session, login)) {
        return 1;
    }
    std::cout << session.execute("echo connected again").output;
    return 0;
}
