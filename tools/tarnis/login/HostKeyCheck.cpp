#include "login/HostKeyCheck.h"

#include "Encodings.h"
#include "Failure.h"
#include "login/Connecting.h"
#include "terminal/Messages.h"
#include "terminal/Terminal.h"

#include <Tarnis/HostAuthenticator.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <string_view>

namespace TarnisTool {

namespace {

using KnownHostFile = Tarnis::HostAuthenticatorKnownHostFile;
using Tarnis::AuthenticateHostResult;

/// The library answers with the class that belongs to the authenticator; only this one has more to
/// say than the result.
class ReasonReader : public Tarnis::HostAuthenticatorResponseVisitorConst
{
public:
    using Reason = Tarnis::HostAuthenticatorResponseKnownHostFile::Reason;

    void visit(const Tarnis::HostAuthenticatorResponseKnownHostFile& response) override
    {
        reason = response.getReason();
    }

    void visit(const Tarnis::HostAuthenticatorResponseHostKey& /*response*/) override {}

    void visit(const Tarnis::HostAuthenticatorResponseNone& /*response*/) override {}

    Reason reason = Reason::CheckFailed;
};

/// Quotes a word for a shell, since the command is there to be copied.
std::string quoted(const std::string& word)
{
    std::string result = "'";
    for (const char character : word) {
        result += character == '\'' ? std::string(R"('\'')") : std::string(1, character);
    }
    return result + "'";
}

/// The line that libssh adds for a server; it writes every name in small letters.
std::string knownHostsLine(const Target& target, const HostKey& key)
{
    std::string name = target.knownHostsName();
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char character) {
        return static_cast<char>(std::tolower(character));
    });
    return name + " " + key.type + " " + key.base64;
}

bool hasLine(const std::string& path, const std::string& wanted)
{
    std::ifstream file(path, std::ios::binary);
    for (std::string line; std::getline(file, line);) {
        if (line == wanted) {
            return true;
        }
    }
    return false;
}

/// Gives the last line of a file the line end that it lacks, as after an edit by hand: libssh would
/// write the next entry onto it and spoil both. A file that cannot be read or written stays as it
/// is, which shows when the entry is looked for.
void endLastLine(const std::string& path)
{
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary | std::ios::ate);
    if (file.tellg() <= 0) {
        return;
    }
    file.seekg(-1, std::ios::end);
    if (file.get() != '\n') {
        file.seekp(0, std::ios::end);
        file.put('\n');
    }
}

/// The type of a public key, "ssh-ed25519" for example: the first field of its binary form. Empty
/// where it has none.
std::string keyTypeOf(std::string_view keyBase64)
{
    const auto key = decodeBase64(keyBase64);
    return key ? std::string(firstField(*key)) : std::string();
}

} // namespace

HostKey HostKey::of(const Tarnis::SSHSession& session, const Target& target)
{
    HostKey key;
    key.base64 = session.getPublicServerKeyB64();
    if (key.base64.empty()) {
        throwConnectionLost(target, "cannot read the host key of", FileSystem::Failure::last());
    }
    key.type = printable(keyTypeOf(key.base64));
    key.fingerprint = session.getPublicServerKeyFingerprint();
    return key;
}

std::string removalCommandFor(const Target& target, const std::string& knownHostsFile)
{
    const std::string file = knownHostsFile.empty() ? "" : " -f " + quoted(knownHostsFile);
    return "ssh-keygen -R " + quoted(target.knownHostsName()) + file;
}

HostKeyCheck::HostKeyCheck(Tarnis::SSHSession& session, const Target& target,
                           const LoginOptions& options)
    : session_(session)
    , target_(target)
    , options_(options)
    , key_(HostKey::of(session, target))
    , finding_(key_.type + " " + key_.fingerprint)
{}

void HostKeyCheck::run()
{
    reason_ = check();
    finding_ += ", " + describeProblem();
    if (reason_ == Reason::Known) {
        return;
    }
    if (reason_ == Reason::CheckFailed) {
        throw Failure(FailureKind::HostKeyNotChecked, "cannot check the host key of",
                      target_.display(), reasonOf(why_));
    }
    decide();
}

/// Asks the library without letting it decide or write anything, so that one place here decides for
/// every policy. A server that is known is accepted by this already.
HostKeyCheck::Reason HostKeyCheck::check()
{
    const auto response =
        session_.hostAuthenticate(KnownHostFile(KnownHostFile::AutoMode::Ask, false));
    why_ = FileSystem::Failure::last();
    if (response == nullptr) {
        throwConnectionLost(target_, "cannot check the host key of", why_);
    }
    ReasonReader reader;
    static_cast<const Tarnis::HostAuthenticatorResponse&>(*response).accept(reader);
    return reader.reason;
}

/// A server that is known, but not by this key: either it changed, or it is another machine.
bool HostKeyCheck::isMismatch() const
{
    return reason_ == Reason::HostKeyChanged || reason_ == Reason::HostKeyTypeOther;
}

void HostKeyCheck::decide()
{
    switch (options_.hostKeyMode) {
    case HostKeyMode::Ask:
        decideByAsking();
        return;
    case HostKeyMode::New:
        if (isMismatch()) {
            refuseMismatch();
        }
        accept(true);
        return;
    case HostKeyMode::Known:
        if (isMismatch()) {
            refuseMismatch();
        }
        refuse("the server is not in the known-hosts file (see --host-key-policy)");
    case HostKeyMode::All:
        if (isMismatch()) {
            report(warningForMismatch());
        }
        // A key that may be an attacker's must not become trusted for good.
        accept(!isMismatch());
        return;
    }
}

void HostKeyCheck::decideByAsking()
{
    const auto terminal = Terminal::open();
    if (!terminal && isMismatch()) {
        refuseMismatch();
    }
    if (!terminal) {
        refuse(describeProblem() + ", and there is no terminal to ask at; --host-key-policy new "
                                   "accepts and records an unknown server");
    }
    if (isMismatch()) {
        terminal->write("\n" + warningForMismatch() + "\n\n");
    }
    terminal->write("The " + key_.type + " key of " + target_.display() + " has the fingerprint\n" +
                    key_.fingerprint + ".\n");
    if (!isMismatch()) {
        terminal->write("The known-hosts file does not have this server.\n");
    }
    const auto answer = terminal->ask(isMismatch() ? "Trust it all the same? (yes/no) "
                                                   : "Trust it and record it? (yes/no) ");
    const bool isYes = answer == "yes" || (answer == "y" && !isMismatch());
    if (!isYes && answer != key_.fingerprint) {
        refuse("it was not accepted at the terminal");
    }
    accept(true);
}

void HostKeyCheck::accept(bool record)
{
    if (record) {
        endLastLine(session_.getKnownHostsFile());
    }
    const auto response =
        session_.hostAuthenticate(KnownHostFile(KnownHostFile::AutoMode::AcceptAll, record));
    if (response == nullptr || response->getResult() != AuthenticateHostResult::Accepted) {
        throwConnectionLost(target_, "cannot check the host key of", FileSystem::Failure::last());
    }
    finding_ += "; accepted";
    if (record) {
        finding_ += " and recorded";
        reportRecording();
    }
}

/// The library does not tell whether the file could be written.
void HostKeyCheck::reportRecording() const
{
    const std::string file = session_.getKnownHostsFile();
    const std::string what = "the " + key_.type + " key of " + target_.display();
    if (hasLine(file, knownHostsLine(target_, key_))) {
        reportNote("recorded " + what + " in " + file);
    } else {
        report("could not record " + what + " in " + file);
    }
}

void HostKeyCheck::refuse(const std::string& why, const std::string& advice) const
{
    const FailureKind kind =
        isMismatch() ? FailureKind::HostKeyChanged : FailureKind::HostKeyUnknown;
    throw Failure(kind, "refused the host key of", target_.display(),
                  why + " (" + key_.type + " " + key_.fingerprint + ")" + advice);
}

/// The warning is part of the refusal: a failure has one line.
void HostKeyCheck::refuseMismatch() const
{
    refuse("WARNING: it is not the one in the known-hosts file", ". " + adviceOnMismatch());
}

std::string HostKeyCheck::describeProblem() const
{
    switch (reason_) {
    case Reason::Known:
        return "known";
    case Reason::KnownHostFileMissing:
        return "unknown (there is no known-hosts file)";
    case Reason::HostUnknown:
        return "the server is not in the known-hosts file";
    case Reason::HostKeyChanged:
        return "the host key HAS CHANGED";
    case Reason::HostKeyTypeOther:
        return "the server is known by a key of another type only";
    case Reason::CheckFailed:
        break;
    }
    return "not checked";
}

std::string HostKeyCheck::warningForMismatch() const
{
    return "WARNING: " + target_.display() + " SHOWS ANOTHER HOST KEY (" + key_.type + " " +
           key_.fingerprint + ") THAN THE ONE THAT IS KNOWN. " + adviceOnMismatch();
}

std::string HostKeyCheck::adviceOnMismatch() const
{
    return "Somebody may be listening in, or the server was set up anew. Ask its administrator; if "
           "it is right, remove the old key: " +
           removalCommandFor(target_, session_.getKnownHostsFile());
}

} // namespace TarnisTool
