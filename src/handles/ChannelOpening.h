#pragma once

#include "handles/SSHHandleChannel.h"

#include <chrono>
#include <cstddef>
#include <functional>

namespace Tarnis {

class SSHHandleSession;

/// Opens a channel. Where the server refuses, the channels that the session keeps for later are
/// closed, and those who have several at once are asked to give them back. Then the server is asked
/// again: it counts a channel until whatever ran on it has ended.
class ChannelOpening
{
public:
    /// Puts a new libssh channel in the place of the refused one, as SSHHandleChannel::renew(), and
    /// begins to listen to it as to that.
    using Renew = std::function<bool()>;

    /// \param renew          null: nothing is closed for it.
    /// \param isOneOfSeveral whoever opens it is one of those who may have several.
    ChannelOpening(SSHHandleChannel& channel, Renew renew, bool isOneOfSeveral = false);

    /// Goes on, in the session's blocking mode. SSH_OK: the channel is open, and marked so;
    /// SSH_AGAIN: call this again. To be called under the lock.
    int advance();

    /// The same in blocking mode, to its end. Asks nobody to give back a channel: they could not
    /// without the lock.
    int finish();

    /// Whether the server was asked and has not answered.
    bool isAsked() const noexcept { return isAsked_; }

private:
    enum class Step
    {
        Asking,
        MakingRoom,
        AskingAgain,
    };

    using Clock = std::chrono::steady_clock;

    int ask();
    bool asksAgain();
    bool makeRoom(SSHHandleSession& session);
    bool hasRoom();

    SSHHandleChannel& channel_;
    Renew renew_;
    Step step_ = Step::Asking;
    bool isAsked_ = false;
    bool isOneOfSeveral_ = false;
    bool asksOthers_ = true;
    bool areOthersAsked_ = false;
    std::size_t extraBefore_ = 0; ///< What those others had then.
    Clock::time_point nextTry_;
    Clock::time_point deadline_;
};

} // namespace Tarnis
