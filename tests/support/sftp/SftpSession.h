#pragma once

#include "support/sftp/ReplyQueue.h"
#include "support/sftp/RuleBook.h"
#include "support/sftp/SftpFileService.h"
#include "support/sftp/SftpLog.h"

#include <sys/stat.h>

namespace TarnisTest {

/// Where a session finds what it needs.
struct SftpPlaces
{
    std::string root;
    /// Read at the start, and again whenever another file has taken its place.
    std::string script;
    std::string log;
};

/// Serves one SFTP session on standard input and output, as a script says.
class SftpSession
{
public:
    explicit SftpSession(const SftpPlaces& places);

    /// Returns when the client has closed its side or the script ends the session.
    void run();

private:
    void watchScript();
    void waitForInput();
    void takeInput();
    bool readInput();
    void serveRequests();
    void serve(const SftpMessage& request);
    SftpMessage replyTo(const SftpMessage& request, const std::vector<SftpAction>& actions);
    SftpMessage carryOut(const SftpMessage& request);
    SftpEvent eventOf(const SftpMessage& request) const;
    bool endsSession(const SftpMessage& request, const SftpEvent& event) const;
    void sendReady();
    int patience() const;

    SftpPlaces places_;

    struct stat scriptFile_
    {};

    SftpScript script_;
    RuleBook rules_;
    ReplyQueue replies_;
    SftpFileService files_;
    SftpLogWriter log_;
    std::string input_;
    std::deque<SftpMessage> requests_;
    bool answers_ = true;
    bool reads_ = true;
    bool inputEnded_ = false;
    bool ended_ = false;
};

} // namespace TarnisTest
