#pragma once

namespace Tarnis {

/// A channel that is kept open though nobody uses it just now, since somebody is likely to need one
/// like it. It is given up by its destructor, and where another one needs its place. To be used
/// under the session's lock.
class SpareChannel
{
public:
    SpareChannel() = default;
    SpareChannel(const SpareChannel&) = delete;
    SpareChannel& operator=(const SpareChannel&) = delete;
    virtual ~SpareChannel() = default;

    /// Tells the server that it is over, without waiting.
    virtual void close() = 0;

    /// Whether the server has closed it, too, or has gone.
    virtual bool isClosed() const = 0;
};

} // namespace Tarnis
