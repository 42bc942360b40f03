#pragma once

#include "Failure.h"
#include "login/ConnectionOptions.h"
#include "login/Login.h"
#include "login/Target.h"

#include <Tarnis/SSHFileSystemSFTP.h>
#include <Tarnis/SSHSession.h>

#include <string>
#include <vector>

namespace TarnisTool {

class Report;

/// Goes the way to a server step by step and says what each of them found, on standard output.
class Doctor
{
public:
    /// \param writes whether a small file may be written on the server, and removed again.
    Doctor(Target target, const LoginOptions& options, LoginSecrets secrets, bool writes);

    /// True: every step went well.
    bool run(Report& report);

private:
    struct Step
    {
        const char* name;
        /// Whether the later ones make no sense without it.
        bool isOnTheWay;
        /// Returns what it found; throws Failure.
        std::string (Doctor::*examine)();
    };

    static const std::vector<Step>& steps();

    bool take(Report& report, const Step& step);
    std::string resolve();
    std::string connect();
    std::string checkHostKey();
    std::string logIn();
    std::string runCommand();
    std::string lookAtFiles();
    std::string lookAtFilesAnew();
    std::string lookAtFilesOn(Tarnis::SSHSession& session) const;
    std::string writeFile(const Tarnis::SSHFileSystemSFTP& files) const;

    Target target_;
    const LoginOptions& options_;
    LoginSecrets secrets_;
    bool writes_;
    Tarnis::SSHSession session_;
};

} // namespace TarnisTool
