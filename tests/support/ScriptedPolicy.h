#pragma once

#include "support/ServerEvents.h"

#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

namespace TarnisTest {

class ScriptedChannel;

/// How far a ScriptedServer goes with a new connection.
enum class Handshake
{
    Complete,         ///< all the way
    SendNothing,      ///< accepts the connection and stays silent
    BannerOnly,       ///< sends its identification line, and nothing after it
    StopAfterKexInit, ///< offers its algorithms, and never goes on with the key exchange
    CloseAtOnce,      ///< accepts the connection and closes it
    CloseAfterBanner, ///< sends its identification line and closes the connection
};

/// What a ScriptedServer does with a request that can be granted.
enum class Answer
{
    Accept,
    Refuse,
    Silence, ///< never answers
    Drop,    ///< closes the TCP connection
    Close,   ///< closes the channel that the request is for
};

/// A question of keyboard-interactive authentication.
struct Prompt
{
    std::string text;
    /// Whether the client may show what is typed.
    bool echo = false;
};

/// What a ScriptedServer answers to an attempt to authenticate.
struct AuthReply
{
    enum class Kind
    {
        Accept,
        Deny,
        Partial,
        Ask,
        Silence,
        Drop
    };

    Kind kind = Kind::Deny;
    /// Deny and Partial: the methods that can continue; empty: those that the policy offers.
    std::vector<AuthMethod> methods{};
    /// Ask only.
    std::string name{};
    std::string instruction{};
    std::vector<Prompt> prompts{};

    static AuthReply accept() { return {Kind::Accept}; }

    static AuthReply deny(std::vector<AuthMethod> methods = {})
    {
        return {Kind::Deny, std::move(methods)};
    }

    /// The attempt was right, and one of these methods must follow.
    static AuthReply partial(std::vector<AuthMethod> methods)
    {
        return {Kind::Partial, std::move(methods)};
    }

    /// Sends SSH_MSG_USERAUTH_INFO_REQUEST, whatever method the attempt used.
    static AuthReply ask(std::string name, std::string instruction, std::vector<Prompt> prompts)
    {
        return {Kind::Ask, {}, std::move(name), std::move(instruction), std::move(prompts)};
    }

    static AuthReply silence() { return {Kind::Silence}; }

    static AuthReply drop() { return {Kind::Drop}; }
};

/// What a ScriptedServer does. Every hook is called for every connection, on the connection's
/// thread and with the connection locked, so it must not wait; `run` alone may take its time: it
/// has a thread of its own for each channel. An empty hook means what its comment says.
struct ScriptedPolicy
{
    static constexpr const char* kPassword = "correct horse battery";

    Handshake handshake = Handshake::Complete;
    /// The software's name in the identification line: "SSH-2.0-" and this. Empty: libssh's own.
    std::string software{};
    /// Text that the client is sent before the first answer to its authentication; empty: none.
    std::string issueBanner{};
    /// The methods that a denied client is told to try.
    std::vector<AuthMethod> offeredMethods{AuthMethod::PublicKey, AuthMethod::Password,
                                           AuthMethod::KeyboardInteractive};

    /// Empty: any user comes in with kPassword (as password, or as the answer to one prompt) or
    /// with any key, and not with method "none".
    std::function<AuthReply(const ServerEvent& attempt)> authenticate{};

    /// The request for the authentication service that follows the key exchange. Empty: accepted.
    std::function<Answer(const ServerEvent& request)> openService{};

    /// Empty: accepts every session channel and refuses all others.
    std::function<Answer(const ServerEvent& request)> openChannel{};

    /// Decides about exec, shell, subsystem, env, pty and other requests on a channel. Empty:
    /// accepts all but the others.
    std::function<Answer(const ServerEvent& request)> channelRequest{};

    /// What the "remote command" does, begun when an exec, shell or subsystem request has been
    /// accepted. Nothing happens on the channel that it does not do itself. Empty: exits with
    /// status 0 (ScriptedChannel::finish).
    std::function<void(ScriptedChannel&)> run{};

    /// Whether the server closes its side of a channel once the client has closed it, as it must.
    bool answersClose = true;
};

} // namespace TarnisTest
