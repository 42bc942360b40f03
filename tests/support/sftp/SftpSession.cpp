#include "support/sftp/SftpSession.h"

#include "support/SystemError.h"
#include "support/TemporaryDirectory.h"
#include "support/sftp/ReplyDisguise.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include <poll.h>
#include <unistd.h>

namespace TarnisTest {

namespace {

using Kind = SftpAction::Kind;

const SftpAction* findAction(const std::vector<SftpAction>& actions, Kind kind)
{
    const auto found =
        std::find_if(actions.begin(), actions.end(),
                     [kind](const SftpAction& action) { return action.kind == kind; });
    return found != actions.end() ? &*found : nullptr;
}

// Whether there is something to be read, or the other side has gone.
bool inputIsWaiting(int milliseconds, bool reads = true)
{
    pollfd input{STDIN_FILENO, static_cast<short>(reads ? POLLIN : 0), 0};
    return ::poll(&input, 1, milliseconds) > 0;
}

void writeAll(const std::string& bytes)
{
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t count = ::write(STDOUT_FILENO, bytes.data() + done, bytes.size() - done);
        if (count < 0 && errno != EINTR) {
            throwErrno("write a reply");
        }
        done += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    }
}

void replaceByLink(const std::filesystem::path& path, const std::string& target)
{
    std::filesystem::rename(path, path.string() + ".aside");
    std::filesystem::create_symlink(target, path);
}

} // namespace

SftpSession::SftpSession(const SftpPlaces& places)
    : places_(places)
    , rules_({})
    , replies_(script_)
    , files_(places.root, script_)
    , log_(places.log)
{}

void SftpSession::run()
{
    while (!ended_) {
        watchScript();
        serveRequests();
        if (inputEnded_) {
            replies_.idle();
        }
        sendReady();
        ended_ = ended_ || inputEnded_;
        if (!ended_) {
            waitForInput();
        }
    }
}

// How long to wait for input: for ever, unless there is something to do without.
int SftpSession::patience() const
{
    constexpr int kLookForScript = 10;
    if (!answers_ || !reads_) {
        return kLookForScript;
    }
    return replies_.isGathering() ? static_cast<int>(script_.idleMilliseconds) : -1;
}

void SftpSession::watchScript()
{
    struct stat found
    {};

    if (::stat(places_.script.c_str(), &found) != 0) {
        throwErrno("find the script");
    }
    if (found.st_ino == scriptFile_.st_ino && found.st_ctim.tv_sec == scriptFile_.st_ctim.tv_sec &&
        found.st_ctim.tv_nsec == scriptFile_.st_ctim.tv_nsec) {
        return;
    }
    scriptFile_ = found;
    script_ = parseSftpScript(readFile(places_.script));
    rules_ = RuleBook(script_.rules);
    answers_ = true;
    reads_ = true;
    replies_.restart();
}

void SftpSession::waitForInput()
{
    if (!inputIsWaiting(patience(), reads_)) {
        replies_.idle();
    } else if (reads_) {
        takeInput();
    } else {
        ended_ = true; // the other side has gone
    }
}

// All that has arrived, so that the log shows how many requests were in flight together.
void SftpSession::takeInput()
{
    constexpr std::size_t kEnough = 4'194'304;
    do {
        inputEnded_ = !readInput();
    } while (!inputEnded_ && input_.size() < kEnough && inputIsWaiting(0));
    while (auto request = decodeSftp(input_)) {
        log_.add(eventOf(*request));
        requests_.push_back(std::move(*request));
    }
}

// False at the end.
bool SftpSession::readInput()
{
    std::string buffer(262'144, '\0');
    const ssize_t count = ::read(STDIN_FILENO, buffer.data(), buffer.size());
    input_.append(buffer, 0, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    return count > 0;
}

void SftpSession::serveRequests()
{
    while (reads_ && !ended_ && !requests_.empty()) {
        const SftpMessage request = std::move(requests_.front());
        requests_.pop_front();
        watchScript();
        serve(request);
    }
}

void SftpSession::serve(const SftpMessage& request)
{
    const SftpEvent event = eventOf(request);
    const auto actions = rules_.actionsFor(event);
    if (findAction(actions, Kind::StopReading) != nullptr) {
        reads_ = false;
        requests_.push_front(request);
        return;
    }
    if (findAction(actions, Kind::Exit) != nullptr || endsSession(request, event)) {
        ended_ = true;
        return;
    }
    replies_.requestArrived();
    if (const SftpAction* const swap = findAction(actions, Kind::LinkInstead)) {
        replaceByLink(std::filesystem::path(places_.root) / event.path, swap->bytes);
    }
    SftpReply reply = disguise(event, replyTo(request, actions), actions);
    reply.waits = findAction(actions, Kind::Hold) != nullptr;
    answers_ = answers_ && findAction(actions, Kind::StopAnswering) == nullptr;
    if (findAction(actions, Kind::Silence) == nullptr) {
        replies_.add(std::move(reply));
    }
    sendReady();
}

SftpMessage SftpSession::replyTo(const SftpMessage& request, const std::vector<SftpAction>& actions)
{
    if (findAction(actions, Kind::SendRaw) != nullptr) {
        return sftpStatus(SftpStatus::Ok);
    }
    if (const SftpAction* const refusal = findAction(actions, Kind::Refuse)) {
        return sftpStatus(static_cast<SftpStatus>(refusal->number));
    }
    if (const SftpAction* const answer = findAction(actions, Kind::Answer)) {
        return {static_cast<SftpPacket>(answer->number), 0, answer->bytes};
    }
    SftpMessage honest = carryOut(request);
    if (const SftpAction* const pretence = findAction(actions, Kind::Pretend)) {
        return sftpStatus(static_cast<SftpStatus>(pretence->number));
    }
    return honest;
}

SftpMessage SftpSession::carryOut(const SftpMessage& request)
{
    if (request.type == SftpPacket::Init) {
        SftpWriter out;
        out.number(static_cast<std::uint32_t>(script_.version));
        for (const SftpExtension& extension : script_.extensions) {
            out.text(extension.name).text(extension.data);
        }
        return {SftpPacket::Version, 0, out.bytes()};
    }
    try {
        return files_.carryOut(request);
    } catch (const MalformedPacket&) {
        return sftpStatus(SftpStatus::BadMessage);
    }
}

SftpEvent SftpSession::eventOf(const SftpMessage& request) const
{
    SftpEvent event;
    event.session = ::getpid();
    event.request = request.type;
    event.id = request.id;
    try {
        SftpReader in(request.body);
        if (request.type != SftpPacket::Init) {
            const std::string subject = in.text();
            const std::string opened = files_.pathOfHandle(subject);
            event.path = opened.empty() ? subject : opened;
        }
        if (request.type == SftpPacket::Read || request.type == SftpPacket::Write) {
            event.offset = in.number64();
            event.length = in.number();
        }
    } catch (const MalformedPacket&) {
        // What is missing stays empty.
    }
    return event;
}

bool SftpSession::endsSession(const SftpMessage& request, const SftpEvent& event) const
{
    if (request.type == SftpPacket::Read) {
        return script_.fatalReadLength && event.length > *script_.fatalReadLength;
    }
    const auto& known = script_.extensions;
    return request.type == SftpPacket::Extended && script_.unknownExtensionIsFatal &&
           std::none_of(known.begin(), known.end(), [&event](const SftpExtension& extension) {
               return extension.name == event.path;
           });
}

void SftpSession::sendReady()
{
    if (!answers_) {
        return;
    }
    while (const auto reply = replies_.take()) {
        // First into the log: when the client has the reply, a test can find it there.
        log_.add(reply->event);
        writeAll(reply->bytes);
        if (reply->isLast) {
            ended_ = true;
            return;
        }
    }
}

} // namespace TarnisTest
