#pragma once

#include "support/sftp/SftpLog.h"
#include "support/sftp/SftpScript.h"

#include <deque>
#include <optional>
#include <random>

namespace TarnisTest {

/// What goes out for one request.
struct SftpReply
{
    /// The request it answers.
    SftpEvent event;
    std::string bytes;
    /// Waits for the next request, whatever the order of the others.
    bool waits = false;
    /// Nothing goes out after it, and the session ends.
    bool isLast = false;
};

/// Holds replies back until they may go out, in the order of the script.
class ReplyQueue
{
public:
    explicit ReplyQueue(const SftpScript& script)
        : script_(script)
        , random_(script.seed)
    {}

    void add(SftpReply reply);
    /// Lets those go that waited for another request.
    void requestArrived();
    /// Lets those go that waited for others to gather.
    void idle();
    /// Lets everything go, and begins anew with what the script says now.
    void restart();

    /// Whether there are replies that idle() would let go.
    bool isGathering() const { return !gathered_.empty(); }

    /// The next reply that may go out.
    std::optional<SftpReply> take();

private:
    void gather(SftpReply reply);
    void pickAtRandom();

    const SftpScript& script_;
    std::mt19937_64 random_;
    std::deque<SftpReply> waiting_;
    std::deque<SftpReply> gathered_;
    std::deque<SftpReply> ready_;
};

} // namespace TarnisTest
