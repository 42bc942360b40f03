// An SFTP server, protocol version 3, on standard input and output, that behaves as a script says.
// To be started by an SSH server as its "sftp" subsystem.
//
//     tarnis_test_sftp_server ROOT SCRIPT LOG

#include "support/sftp/SftpSession.h"

#include <csignal>
#include <exception>
#include <iostream>

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::cerr << "usage: tarnis_test_sftp_server ROOT SCRIPT LOG\n";
        return 2;
    }
    (void)std::signal(SIGPIPE, SIG_IGN);
    try {
        TarnisTest::SftpSession({argv[1], argv[2], argv[3]}).run();
    } catch (const std::exception& error) {
        std::cerr << "tarnis_test_sftp_server: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
