#include "support/ScriptedConnection.h"

#include "support/DeprecatedLibssh.h"
#include "support/KexInit.h"

#include <algorithm>
#include <array>
#include <stdexcept>

#include <poll.h>
#include <sys/socket.h>

namespace TarnisTest {

namespace {

using Kind = ServerEvent::Kind;

constexpr std::string_view kIdentification = "SSH-2.0-scripted\r\n";

// What libssh marks as deprecated in favour of its server callbacks, which leave no room for an
// answer that is late, different or missing.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

const char* passwordOf(ssh_message message)
{
    return ssh_message_auth_password(message);
}

ssh_key keyOf(ssh_message message)
{
    return ssh_message_auth_pubkey(message);
}

bool isSigned(ssh_message message)
{
    return ssh_message_auth_publickey_state(message) == SSH_PUBLICKEY_STATE_VALID;
}

const char* terminalOf(ssh_message message)
{
    return ssh_message_channel_request_pty_term(message);
}

#pragma GCC diagnostic pop

std::string toString(const char* text)
{
    return text != nullptr ? text : "";
}

int flagsOf(const std::vector<AuthMethod>& methods)
{
    unsigned flags = 0;
    for (const AuthMethod method : methods) {
        flags |= static_cast<unsigned>(method);
    }
    return static_cast<int>(flags);
}

AuthMethod methodOf(ssh_message message)
{
    switch (ssh_message_subtype(message)) {
    case SSH_AUTH_METHOD_NONE:
        return AuthMethod::None;
    case SSH_AUTH_METHOD_PASSWORD:
        return AuthMethod::Password;
    case SSH_AUTH_METHOD_PUBLICKEY:
        return AuthMethod::PublicKey;
    case SSH_AUTH_METHOD_INTERACTIVE:
        return AuthMethod::KeyboardInteractive;
    default:
        return AuthMethod::Other;
    }
}

std::vector<std::string> answersIn(ssh_session session)
{
    std::vector<std::string> answers;
    const int count = ssh_userauth_kbdint_getnanswers(session);
    answers.reserve(static_cast<std::size_t>(std::max(count, 0)));
    for (int i = 0; i < count; ++i) {
        answers.push_back(
            toString(ssh_userauth_kbdint_getanswer(session, static_cast<unsigned>(i))));
    }
    return answers;
}

AuthReply decideByDefault(const ServerEvent& attempt)
{
    const std::string password = ScriptedPolicy::kPassword;
    switch (attempt.method) {
    case AuthMethod::Password:
        return attempt.password == password ? AuthReply::accept() : AuthReply::deny();
    case AuthMethod::PublicKey:
        return AuthReply::accept();
    case AuthMethod::KeyboardInteractive:
        if (!attempt.isPromptResponse) {
            return AuthReply::ask("", "", {{"Password: ", false}});
        }
        return attempt.answers == std::vector<std::string>{password} ? AuthReply::accept()
                                                                     : AuthReply::deny();
    case AuthMethod::None:
    case AuthMethod::Other:
        break;
    }
    return AuthReply::deny();
}

void askPrompts(ssh_message message, const AuthReply& reply)
{
    std::vector<const char*> texts;
    texts.reserve(reply.prompts.size());
    std::string echoes;
    for (const Prompt& prompt : reply.prompts) {
        texts.push_back(prompt.text.c_str());
        echoes += prompt.echo ? '\1' : '\0';
    }
    ssh_message_auth_interactive_request(message, reply.name.c_str(), reply.instruction.c_str(),
                                         static_cast<unsigned>(texts.size()), texts.data(),
                                         echoes.data());
}

ServerEvent describeRequest(ssh_message message)
{
    switch (ssh_message_subtype(message)) {
    case SSH_CHANNEL_REQUEST_EXEC:
        return {
            Kind::ExecRequest, 0, 0, {}, toString(ssh_message_channel_request_command(message))};
    case SSH_CHANNEL_REQUEST_SHELL:
        return {Kind::ShellRequest};
    case SSH_CHANNEL_REQUEST_SUBSYSTEM:
        return {Kind::SubsystemRequest,
                0,
                0,
                {},
                toString(ssh_message_channel_request_subsystem(message))};
    case SSH_CHANNEL_REQUEST_ENV:
        return {Kind::EnvRequest, 0, 0, toString(ssh_message_channel_request_env_name(message)),
                toString(ssh_message_channel_request_env_value(message))};
    case SSH_CHANNEL_REQUEST_PTY:
        return {Kind::PtyRequest, 0, 0, {}, toString(terminalOf(message))};
    default:
        return {Kind::OtherRequest};
    }
}

bool beginsScript(Kind kind)
{
    return kind == Kind::ExecRequest || kind == Kind::ShellRequest ||
           kind == Kind::SubsystemRequest;
}

} // namespace

ScriptedConnection::ScriptedConnection(int number, UniqueFd socket, const ScriptedPolicy& policy,
                                       EventLog& events)
    : number_(number)
    , policy_(policy)
    , events_(events)
    , socket_(std::move(socket))
    , thread_([this] { serve(); })
{}

ScriptedConnection::~ScriptedConnection()
{
    drop();
    thread_.join();
}

void ScriptedConnection::drop()
{
    dropped_ = true;
    ::shutdown(socket_.get(), SHUT_RDWR);
    wakeUp_.signal();
}

void ScriptedConnection::setFrozen(bool frozen)
{
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        frozen_ = frozen;
    }
    noteChange();
}

ScriptedConnection::Lock ScriptedConnection::enter()
{
    Lock lock(mutex_);
    changed_.wait(lock, [this] { return ended_ || !frozen_; });
    if (ended_) {
        throw ConnectionGone();
    }
    return lock;
}

void ScriptedConnection::waitForChange(Lock& lock)
{
    changed_.wait(lock);
    changed_.wait(lock, [this] { return ended_ || !frozen_; });
    if (ended_) {
        throw ConnectionGone();
    }
}

void ScriptedConnection::waitBriefly(Lock& lock)
{
    changed_.wait_for(lock, std::chrono::milliseconds(2));
    if (ended_) {
        throw ConnectionGone();
    }
}

ScriptedConnection::Lock ScriptedConnection::peek()
{
    return Lock(mutex_);
}

void ScriptedConnection::noteChange()
{
    changed_.notify_all();
    wakeUp_.signal();
}

void ScriptedConnection::record(ServerEvent event)
{
    event.connection = number_;
    events_.add(std::move(event));
}

void ScriptedConnection::serve()
{
    record({Kind::Connected});
    switch (policy_.handshake) {
    case Handshake::Complete:
        serveSsh();
        break;
    case Handshake::SendNothing:
        discardUntilClosed();
        break;
    case Handshake::BannerOnly:
        sendRaw(kIdentification);
        discardUntilClosed();
        break;
    case Handshake::StopAfterKexInit:
        sendRaw(kIdentification);
        sendRaw(kexInitPacket());
        discardUntilClosed();
        break;
    case Handshake::CloseAtOnce:
        ::shutdown(socket_.get(), SHUT_WR);
        discardUntilClosed();
        break;
    case Handshake::CloseAfterBanner:
        sendRaw(kIdentification);
        ::shutdown(socket_.get(), SHUT_WR);
        discardUntilClosed();
        break;
    }
    finish();
}

void ScriptedConnection::sendRaw(std::string_view bytes)
{
    // A client that is gone already is noticed when reading from it.
    (void)::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

// Reads what the client sends, so that closing the socket does not reset the connection.
void ScriptedConnection::discardUntilClosed()
{
    std::array<char, 4096> buffer{};
    while (!dropped_ && ::recv(socket_.get(), buffer.data(), buffer.size(), 0) > 0) {
    }
}

void ScriptedConnection::serveSsh()
{
    {
        const Lock lock(mutex_);
        openSession();
        takePacketsIn();
    }
    while (waitForTraffic()) {
        {
            const Lock lock(mutex_);
            if (!frozen_) {
                takePacketsIn();
                answerCloses();
            }
        }
        changed_.notify_all();
    }
}

void ScriptedConnection::openSession()
{
    bind_ = ssh_bind_new();
    const bool processConfig = false;
    ssh_bind_options_set(bind_, SSH_BIND_OPTIONS_PROCESS_CONFIG, &processConfig);
    ssh_bind_options_set(bind_, SSH_BIND_OPTIONS_IMPORT_KEY, ssh_key_dup(scriptedHostKey()));
    if (!policy_.software.empty()) {
        ssh_bind_options_set(bind_, SSH_BIND_OPTIONS_BANNER, policy_.software.c_str());
    }
    session_ = ssh_new();
    if (ssh_bind_accept_fd(bind_, session_, ::dup(socket_.get())) != SSH_OK) {
        throw std::runtime_error(std::string("ssh_bind_accept_fd: ") + ssh_get_error(bind_));
    }
    ssh_set_blocking(session_, 0);
    ssh_set_message_callback(session_, &ScriptedConnection::onMessage, this);
}

// Waits without the lock; false when the connection is over.
bool ScriptedConnection::waitForTraffic()
{
    std::array<pollfd, 2> watched{{{wakeUp_.fd(), POLLIN, 0}, {socket_.get(), POLLIN, 0}}};
    nfds_t count = watched.size();
    {
        const Lock lock(mutex_);
        if (isFinished()) {
            return false;
        }
        if (frozen_) {
            count = 1;
        } else if ((ssh_get_poll_flags(session_) & SSH_WRITE_PENDING) != 0) {
            watched[1].events |= POLLOUT;
        }
    }
    ::poll(watched.data(), count, -1);
    wakeUp_.clear();
    return !dropped_;
}

bool ScriptedConnection::isFinished() const
{
    return dropped_ || failed_ || (ssh_get_status(session_) & (SSH_CLOSED | SSH_CLOSED_ERROR)) != 0;
}

void ScriptedConnection::takePacketsIn()
{
    if (poll_ != nullptr) {
        failed_ = ssh_event_dopoll(poll_, 0) == SSH_ERROR;
        return;
    }
    const int rc = ssh_handle_key_exchange(session_);
    failed_ = rc == SSH_ERROR;
    if (rc == SSH_OK) {
        // Not sooner: the session has nothing to poll before it has begun to talk.
        poll_ = ssh_event_new();
        ssh_event_add_session(poll_, session_);
        recordKeyExchangeOnce();
    }
}

// The first request may arrive together with the last packet of the key exchange.
void ScriptedConnection::recordKeyExchangeOnce()
{
    if (!keyExchangeRecorded_) {
        keyExchangeRecorded_ = true;
        record({Kind::KeyExchangeDone});
    }
}

void ScriptedConnection::answerCloses()
{
    if (policy_.answersClose) {
        for (const auto& channel : channels_) {
            channel->answerClose();
        }
    }
}

void ScriptedConnection::finish()
{
    {
        const Lock lock(mutex_);
        ended_ = true;
    }
    changed_.notify_all();
    ::shutdown(socket_.get(), SHUT_RDWR);
    record({Kind::Disconnected});
    for (std::thread& script : scripts_) {
        script.join();
    }
    if (poll_ != nullptr) {
        ssh_event_remove_session(poll_, session_);
        ssh_event_free(poll_);
    }
    ssh_free(session_);
    ssh_bind_free(bind_);
}

int ScriptedConnection::onMessage(ssh_session /*session*/, ssh_message message, void* self)
{
    const bool handled = static_cast<ScriptedConnection*>(self)->handle(message);
    return handled ? 0 : 1; // 1 makes libssh refuse the request
}

bool ScriptedConnection::handle(ssh_message message)
{
    recordKeyExchangeOnce();
    switch (ssh_message_type(message)) {
    case SSH_REQUEST_SERVICE:
        return handleService(message);
    case SSH_REQUEST_AUTH:
        return handleAuthentication(message);
    case SSH_REQUEST_CHANNEL_OPEN:
        return handleChannelOpen(message);
    case SSH_REQUEST_CHANNEL:
        return handleChannelRequest(message);
    default:
        return false;
    }
}

// For every answer but Accept; whether nothing more is to be done.
bool ScriptedConnection::refuseOrIgnore(Answer answer, ssh_message message)
{
    switch (answer) {
    case Answer::Accept:
        return false;
    case Answer::Refuse:
        ssh_message_reply_default(message);
        return true;
    case Answer::Silence:
    case Answer::Close:
        return true;
    case Answer::Drop:
        drop();
        return true;
    }
    return false;
}

bool ScriptedConnection::handleService(ssh_message message)
{
    const ServerEvent event{
        Kind::ServiceRequest, number_, 0, {}, toString(ssh_message_service_service(message))};
    record(event);
    const Answer answer = policy_.openService ? policy_.openService(event) : Answer::Accept;
    if (answer == Answer::Refuse) {
        drop(); // the protocol's only way to refuse a service
    } else if (!refuseOrIgnore(answer, message)) {
        ssh_message_service_reply_success(message);
    }
    return true;
}

bool ScriptedConnection::handleAuthentication(ssh_message message)
{
    const ServerEvent attempt = describeAttempt(message);
    record(attempt);
    sendIssueBannerOnce();
    replyTo(message, attempt, decide(attempt));
    return true;
}

ServerEvent ScriptedConnection::describeAttempt(ssh_message message)
{
    ServerEvent attempt{Kind::Authentication, number_};
    attempt.method = methodOf(message);
    attempt.isPromptResponse = attempt.method == AuthMethod::KeyboardInteractive &&
                               ssh_message_auth_kbdint_is_response(message) == 1;
    if (const char* const user = ssh_message_auth_user(message); user != nullptr) {
        lastUser_ = user; // a response to prompts carries no name
    }
    attempt.user = lastUser_;
    if (attempt.isPromptResponse) {
        attempt.answers = answersIn(session_);
    } else if (attempt.method == AuthMethod::Password) {
        attempt.password = toString(passwordOf(message));
    } else if (attempt.method == AuthMethod::PublicKey) {
        attempt.keyFingerprint = fingerprintOf(keyOf(message));
        attempt.isSigned = isSigned(message);
    }
    return attempt;
}

AuthReply ScriptedConnection::decide(const ServerEvent& attempt) const
{
    return policy_.authenticate ? policy_.authenticate(attempt) : decideByDefault(attempt);
}

void ScriptedConnection::replyTo(ssh_message message, const ServerEvent& attempt,
                                 const AuthReply& reply)
{
    ssh_message_auth_set_methods(
        message, flagsOf(reply.methods.empty() ? policy_.offeredMethods : reply.methods));
    const bool isKeyQuestion = attempt.method == AuthMethod::PublicKey && !attempt.isSigned;
    switch (reply.kind) {
    case AuthReply::Kind::Accept:
    case AuthReply::Kind::Partial:
        if (isKeyQuestion) {
            ssh_message_auth_reply_pk_ok_simple(message);
        } else {
            ssh_message_auth_reply_success(message, reply.kind == AuthReply::Kind::Partial ? 1 : 0);
        }
        break;
    case AuthReply::Kind::Deny:
        ssh_message_reply_default(message);
        break;
    case AuthReply::Kind::Ask:
        askPrompts(message, reply);
        break;
    case AuthReply::Kind::Silence:
        break;
    case AuthReply::Kind::Drop:
        drop();
        break;
    }
}

void ScriptedConnection::sendIssueBannerOnce()
{
    if (policy_.issueBanner.empty() || issueBannerSent_) {
        return;
    }
    issueBannerSent_ = true;
    const ssh_string banner = ssh_string_from_char(policy_.issueBanner.c_str());
    ssh_send_issue_banner(session_, banner);
    ssh_string_free(banner);
}

bool ScriptedConnection::handleChannelOpen(ssh_message message)
{
    const int type = ssh_message_subtype(message);
    const bool isSession = type == SSH_CHANNEL_SESSION;
    const ServerEvent event{Kind::ChannelOpen,
                            number_,
                            static_cast<int>(channels_.size()) + 1,
                            {},
                            isSession ? "session" : std::to_string(type)};
    record(event);
    Answer answer = isSession ? Answer::Accept : Answer::Refuse;
    if (policy_.openChannel) {
        answer = policy_.openChannel(event);
    }
    if (!refuseOrIgnore(answer, message)) {
        acceptChannel(message);
    }
    return true;
}

void ScriptedConnection::acceptChannel(ssh_message message)
{
    const ssh_channel channel = ssh_message_channel_request_open_reply_accept(message);
    if (channel != nullptr) {
        channels_.push_back(std::make_unique<ScriptedChannel>(
            *this, channel, static_cast<int>(channels_.size()) + 1));
    }
}

ScriptedChannel* ScriptedConnection::find(ssh_channel channel) const
{
    for (const auto& candidate : channels_) {
        if (candidate->channel_ == channel) {
            return candidate.get();
        }
    }
    return nullptr;
}

bool ScriptedConnection::handleChannelRequest(ssh_message message)
{
    ScriptedChannel* const channel = find(ssh_message_channel_request_channel(message));
    if (channel == nullptr) {
        return false;
    }
    ServerEvent event = describeRequest(message);
    event.connection = number_;
    event.channel = channel->number();
    record(event);
    Answer answer = event.kind == Kind::OtherRequest ? Answer::Refuse : Answer::Accept;
    if (policy_.channelRequest) {
        answer = policy_.channelRequest(event);
    }
    if (answer == Answer::Close) {
        ssh_channel_close(channel->channel_);
    } else if (!refuseOrIgnore(answer, message)) {
        acceptRequest(message, *channel, event);
    }
    return true;
}

void ScriptedConnection::acceptRequest(ssh_message message, ScriptedChannel& channel,
                                       const ServerEvent& event)
{
    ssh_message_channel_request_reply_success(message);
    if (event.kind == Kind::EnvRequest) {
        channel.noteVariable(event.name, event.text);
    } else if (beginsScript(event.kind)) {
        channel.noteRequest(event.text);
        startScript(channel);
    }
}

// The script begins to act on the channel when the lock, which is held here, is free.
void ScriptedConnection::startScript(ScriptedChannel& channel)
{
    scripts_.emplace_back([this, &channel] { runScript(channel); });
}

void ScriptedConnection::runScript(ScriptedChannel& channel) const
{
    try {
        if (policy_.run) {
            policy_.run(channel);
        } else {
            channel.finish(0);
        }
    } catch (const ConnectionGone&) {
        // The script's end, as good as any. Any other exception ends the program, and rightly so.
    }
}

ssh_key scriptedHostKey()
{
    static const std::unique_ptr<ssh_key_struct, decltype(&ssh_key_free)> key(
        [] {
            ssh_key made = nullptr;
            if (Deprecated::generateKey(SSH_KEYTYPE_ED25519, &made) != SSH_OK) {
                throw std::runtime_error("libssh cannot make a host key");
            }
            return made;
        }(),
        &ssh_key_free);
    return key.get();
}

std::string fingerprintOf(ssh_key key)
{
    unsigned char* hash = nullptr;
    std::size_t size = 0;
    if (ssh_get_publickey_hash(key, SSH_PUBLICKEY_HASH_SHA256, &hash, &size) != 0) {
        return {};
    }
    char* const text = ssh_get_fingerprint_hash(SSH_PUBLICKEY_HASH_SHA256, hash, size);
    std::string fingerprint = toString(text);
    ssh_string_free_char(text);
    ssh_clean_pubkey_hash(&hash);
    return fingerprint;
}

} // namespace TarnisTest
