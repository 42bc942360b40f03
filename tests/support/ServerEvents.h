#pragma once

#include "support/WaitUntil.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

namespace TarnisTest {

/// An authentication method by the flag that libssh gives it.
enum class AuthMethod : unsigned
{
    None = 0x01,
    Password = 0x02,
    PublicKey = 0x04,
    KeyboardInteractive = 0x10,
    Other = 0x80,
};

/// One thing that happened at a ScriptedServer. The fields beyond the first three are filled where
/// the kind says so.
struct ServerEvent
{
    enum class Kind
    {
        Connected,        ///< a TCP connection was accepted
        KeyExchangeDone,  ///< the encrypted transport stands
        ServiceRequest,   ///< text: the service
        Authentication,   ///< see the fields below
        ChannelOpen,      ///< text: "session" or the number of another type
        ExecRequest,      ///< text: the command line, byte for byte
        ShellRequest,     ///<
        SubsystemRequest, ///< text: the subsystem
        EnvRequest,       ///< name and text: the variable and its value
        PtyRequest,       ///< text: the terminal type
        OtherRequest,     ///< a channel request of another type
        Signal,           ///< text: the name without "SIG"
        Data,             ///< bytes: how many arrived; pieces in a row count as one event
        Eof,              ///< the client sends no more data
        Close,            ///< the client closed the channel
        Disconnected,     ///< the connection has ended, whoever ended it
    };

    Kind kind;
    /// Connections are numbered from 1 in the order they are accepted.
    int connection = 0;
    /// Channels of a connection are numbered from 1 in the order they are opened; 0: none.
    int channel = 0;
    std::string name{};
    std::string text{};
    std::uint64_t bytes = 0;

    // Authentication only.
    AuthMethod method = AuthMethod::None;
    std::string user{};
    /// The password, for method Password.
    std::string password{};
    /// The answers to the prompts, in order, when this is a response to them.
    std::vector<std::string> answers{};
    bool isPromptResponse = false;
    /// "SHA256:...", for method PublicKey.
    std::string keyFingerprint{};
    /// Whether the key came with a valid signature; without, the client only asks about the key.
    bool isSigned = false;
};

const char* toString(ServerEvent::Kind kind);

/// For messages of failed assertions.
std::ostream& operator<<(std::ostream& out, ServerEvent::Kind kind);
std::ostream& operator<<(std::ostream& out, const ServerEvent& event);

/// The events of a server in the order in which they happened. Any thread may call any member.
class EventLog
{
public:
    void add(ServerEvent event);

    std::vector<ServerEvent> all() const;
    std::vector<ServerEvent> ofKind(ServerEvent::Kind kind) const;
    std::size_t count(ServerEvent::Kind kind) const;

    /// Waits until at least `times` events of this kind have happened; false after the limit.
    [[nodiscard]] bool waitFor(ServerEvent::Kind kind, std::size_t times = 1,
                               std::chrono::milliseconds limit = kGenerousLimit) const;

private:
    mutable std::mutex mutex_;
    std::vector<ServerEvent> events_;
};

} // namespace TarnisTest
