#include "support/TcpProxy.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <deque>
#include <string>
#include <system_error>

#include <poll.h>
#include <sys/socket.h>

namespace TarnisTest {

namespace {

using Clock = std::chrono::steady_clock;

// A line with a long delay holds what is on the way; beyond this the sender has to wait.
constexpr std::size_t kMostInTransit = std::size_t{64} * 1024 * 1024;
constexpr std::size_t kPiece = 65536;

void closeWithReset(UniqueFd& socket)
{
    const linger atOnce{1, 0};
    (void)::setsockopt(socket.get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    socket.reset();
}

// Accepting must not wait: the connection may have been withdrawn.
UniqueFd openListener(std::uint16_t port)
{
    UniqueFd listener = listenOnLoopback(port);
    setNonBlocking(listener);
    return listener;
}

bool wouldBlock()
{
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

} // namespace

// One connection: two sockets and a thread that carries bytes between them.
class TcpProxy::Connection
{
public:
    Connection(TcpProxy& proxy, UniqueFd client)
        : proxy_(proxy)
        , client_(std::move(client))
        , thread_([this] { run(); })
    {}

    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    ~Connection()
    {
        end(Cut::Reset);
        finished_ = true;
        wakeUp_.signal();
        thread_.join();
    }

    void end(Cut how)
    {
        how_ = how;
        cutNow_ = true;
        wakeUp_.signal();
    }

    void settingsChanged() { wakeUp_.signal(); }

    bool isOpen() const { return !closed_; }

private:
    struct Piece
    {
        Clock::time_point due;
        std::string bytes;
    };

    // The traffic in one direction.
    struct Flow
    {
        Direction direction;
        UniqueFd& from;
        UniqueFd& to;
        std::deque<Piece> inTransit{};
        std::size_t inTransitBytes = 0;
        std::uint64_t forwarded = 0;
        Clock::time_point lineFree{};
        bool sourceEnded = false;
        bool finished = false;
    };

    void run();
    bool connectToTarget();
    void forward();
    bool step();
    bool carry(Flow& flow, const Settings& settings);
    void waitForWork(const Settings& settings);
    static void watch(const Flow& flow, const Line& line, pollfd& from, pollfd& to, int& timeout);
    bool take(Flow& flow, const Line& line);
    bool give(Flow& flow, const Line& line);
    std::size_t giveable(const Flow& flow, const Line& line) const;
    bool isDue(const Flow& flow) const;
    void passEndOn(Flow& flow);
    void cut();
    void discardUntilClosed();

    TcpProxy& proxy_;
    UniqueFd client_;
    UniqueFd server_;
    Flow toServer_{ToServer, client_, server_};
    Flow toClient_{ToClient, server_, client_};
    WakeUp wakeUp_;
    std::atomic<Cut> how_{Cut::Reset};
    std::atomic<bool> cutNow_{false};
    std::atomic<bool> finished_{false};
    std::atomic<bool> closed_{false};
    std::thread thread_;
};

void TcpProxy::Connection::run()
{
    if (connectToTarget()) {
        forward();
        if (cutNow_) {
            cut();
        }
    }
    closed_ = true;
    client_.reset();
    server_.reset();
}

bool TcpProxy::Connection::connectToTarget()
{
    try {
        server_ = connectToLoopback(proxy_.targetPort_);
    } catch (const std::system_error&) {
        return false;
    }
    setNonBlocking(client_);
    setNonBlocking(server_);
    return true;
}

void TcpProxy::Connection::forward()
{
    while (step() && !cutNow_ && !(toServer_.finished && toClient_.finished)) {
        waitForWork(proxy_.settings());
    }
}

// Carries what can be carried now; false when a socket is broken.
bool TcpProxy::Connection::step()
{
    const Settings settings = proxy_.settings();
    return carry(toServer_, settings) && carry(toClient_, settings);
}

bool TcpProxy::Connection::carry(Flow& flow, const Settings& settings)
{
    const Line& line = settings.lines[flow.direction];
    if (line.stalled || cutNow_) {
        return true;
    }
    if (!take(flow, line) || !give(flow, line)) {
        return false;
    }
    passEndOn(flow);
    if (line.cutAfter && flow.forwarded >= *line.cutAfter) {
        end(settings.cutAfterBytes);
    }
    return true;
}

void TcpProxy::Connection::waitForWork(const Settings& settings)
{
    std::array<pollfd, 3> watched{
        {{client_.get(), 0, 0}, {server_.get(), 0, 0}, {wakeUp_.fd(), POLLIN, 0}}};
    int timeout = -1;
    watch(toServer_, settings.lines[ToServer], watched[0], watched[1], timeout);
    watch(toClient_, settings.lines[ToClient], watched[1], watched[0], timeout);
    for (pollfd& socket : watched) {
        // A socket with nothing to wait for would still wake us for ever once it is closed.
        socket.fd = socket.events == 0 ? -1 : socket.fd;
    }
    ::poll(watched.data(), watched.size(), timeout);
    wakeUp_.clear();
}

void TcpProxy::Connection::watch(const Flow& flow, const Line& line, pollfd& from, pollfd& to,
                                 int& timeout)
{
    if (line.stalled) {
        return;
    }
    if (!flow.sourceEnded && flow.inTransitBytes < kMostInTransit) {
        from.events |= POLLIN;
    }
    if (flow.inTransit.empty()) {
        return;
    }
    const auto next = std::max(flow.inTransit.front().due, flow.lineFree);
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now()).count();
    if (wait <= 0) {
        to.events |= POLLOUT;
    } else if (timeout < 0 || wait < timeout) {
        timeout = static_cast<int>(wait);
    }
}

bool TcpProxy::Connection::take(Flow& flow, const Line& line)
{
    if (flow.sourceEnded || flow.inTransitBytes >= kMostInTransit) {
        return true;
    }
    std::string bytes(kPiece, '\0');
    const ssize_t size = ::recv(flow.from.get(), bytes.data(), bytes.size(), 0);
    if (size < 0) {
        return wouldBlock();
    }
    flow.sourceEnded = size == 0;
    if (size > 0) {
        bytes.resize(static_cast<std::size_t>(size));
        proxy_.noteArrival(flow.direction, bytes.size());
        flow.inTransitBytes += bytes.size();
        flow.inTransit.push_back({Clock::now() + line.delay, std::move(bytes)});
    }
    return true;
}

bool TcpProxy::Connection::isDue(const Flow& flow) const
{
    return !flow.inTransit.empty() &&
           std::max(flow.inTransit.front().due, flow.lineFree) <= Clock::now();
}

// How much of the first piece may go out at once.
std::size_t TcpProxy::Connection::giveable(const Flow& flow, const Line& line) const
{
    constexpr std::size_t kSharesOfASecond = 200;
    std::size_t size = flow.inTransit.front().bytes.size();
    if (line.dribbles) {
        size = 1;
    }
    if (line.bytesPerSecond > 0) {
        size = std::min(size, std::max<std::size_t>(1, line.bytesPerSecond / kSharesOfASecond));
    }
    if (line.cutAfter) {
        const std::uint64_t left =
            *line.cutAfter - std::min<std::uint64_t>(*line.cutAfter, flow.forwarded);
        size = static_cast<std::size_t>(std::min<std::uint64_t>(size, left));
    }
    return size;
}

bool TcpProxy::Connection::give(Flow& flow, const Line& line)
{
    while (isDue(flow)) {
        std::string& bytes = flow.inTransit.front().bytes;
        const std::size_t size = giveable(flow, line);
        if (size == 0) {
            return true;
        }
        const ssize_t sent = proxy_.send(flow.direction, flow.to, {bytes.data(), size});
        if (sent < 0) {
            return wouldBlock();
        }
        const auto given = static_cast<std::size_t>(sent);
        bytes.erase(0, given);
        if (bytes.empty()) {
            flow.inTransit.pop_front();
        }
        flow.inTransitBytes -= given;
        flow.forwarded += given;
        if (line.bytesPerSecond > 0) {
            flow.lineFree = Clock::now() +
                            std::chrono::nanoseconds(given * 1'000'000'000U / line.bytesPerSecond);
        }
    }
    return true;
}

void TcpProxy::Connection::passEndOn(Flow& flow)
{
    if (flow.sourceEnded && flow.inTransit.empty() && !flow.finished) {
        flow.finished = true;
        ::shutdown(flow.to.get(), SHUT_WR);
    }
}

void TcpProxy::Connection::cut()
{
    closed_ = true;
    if (how_ == Cut::Reset) {
        closeWithReset(client_);
        closeWithReset(server_);
        return;
    }
    ::shutdown(client_.get(), SHUT_WR);
    ::shutdown(server_.get(), SHUT_WR);
    discardUntilClosed();
}

// Closing a socket that holds unread bytes resets the connection, which would undo the orderly end:
// so they are read until the peers have closed too, or nobody cares any more.
void TcpProxy::Connection::discardUntilClosed()
{
    std::array<char, 4096> buffer{};
    std::array<pollfd, 3> watched{
        {{client_.get(), POLLIN, 0}, {server_.get(), POLLIN, 0}, {wakeUp_.fd(), POLLIN, 0}}};
    while (!finished_ && (watched[0].fd >= 0 || watched[1].fd >= 0)) {
        ::poll(watched.data(), watched.size(), -1);
        wakeUp_.clear();
        for (std::size_t i = 0; i < 2; ++i) {
            const ssize_t size =
                watched[i].fd < 0 ? 0 : ::recv(watched[i].fd, buffer.data(), buffer.size(), 0);
            if (size == 0 || (size < 0 && !wouldBlock())) {
                watched[i].fd = -1;
            }
        }
    }
}

TcpProxy::TcpProxy(std::uint16_t targetPort)
    : targetPort_(targetPort)
    , listener_(openListener(0))
    , port_(localPort(listener_))
    , acceptor_([this] { acceptConnections(); })
{}

TcpProxy::~TcpProxy()
{
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        stopping_ = true;
    }
    wakeUp_.signal();
    acceptor_.join();
    // Their threads still ask for settings, so not under the lock.
    connections_.clear();
}

template <typename Change>
void TcpProxy::change(Change apply)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    apply(settings_);
    for (const auto& connection : connections_) {
        connection->settingsChanged();
    }
}

TcpProxy::Settings TcpProxy::settings() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return settings_;
}

void TcpProxy::setDelay(Direction direction, std::chrono::milliseconds delay)
{
    change([=](Settings& settings) { settings.lines[direction].delay = delay; });
}

void TcpProxy::setThrottle(Direction direction, std::size_t bytesPerSecond)
{
    change([=](Settings& settings) { settings.lines[direction].bytesPerSecond = bytesPerSecond; });
}

void TcpProxy::setDribble(Direction direction, bool on)
{
    change([=](Settings& settings) { settings.lines[direction].dribbles = on; });
}

void TcpProxy::stall(Direction direction)
{
    change([=](Settings& settings) { settings.lines[direction].stalled = true; });
}

void TcpProxy::stall()
{
    stall(ToServer);
    stall(ToClient);
}

void TcpProxy::resume()
{
    change([](Settings& settings) {
        for (Line& line : settings.lines) {
            line.stalled = false;
        }
    });
}

void TcpProxy::cut(Cut how)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    for (const auto& connection : connections_) {
        connection->end(how);
    }
}

void TcpProxy::cutAfterBytes(Direction direction, std::uint64_t bytes, Cut how)
{
    change([=](Settings& settings) {
        settings.lines[direction].cutAfter = bytes;
        settings.cutAfterBytes = how;
    });
}

void TcpProxy::neverCut()
{
    change([](Settings& settings) {
        for (Line& line : settings.lines) {
            line.cutAfter.reset();
        }
    });
}

void TcpProxy::refuseNew()
{
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        // Closing alone would keep it listening while the acceptor's poll() holds on to it.
        ::shutdown(listener_.get(), SHUT_RDWR);
        listener_.reset();
    }
    wakeUp_.signal();
}

void TcpProxy::acceptNew()
{
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        if (!listener_.isOpen()) {
            listener_ = openListener(port_);
        }
    }
    wakeUp_.signal();
}

std::uint64_t TcpProxy::forwardedBytes(Direction direction) const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return forwarded_[direction];
}

std::vector<std::size_t> TcpProxy::pieceSizes(Direction direction) const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return pieceSizes_[direction];
}

void TcpProxy::noteArrival(Direction direction, std::size_t size)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    pieceSizes_[direction].push_back(size);
}

std::size_t TcpProxy::connectionCount() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return connectionCount_;
}

std::size_t TcpProxy::openConnectionCount() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return static_cast<std::size_t>(
        std::count_if(connections_.begin(), connections_.end(),
                      [](const auto& connection) { return connection->isOpen(); }));
}

// Under the lock, so that nobody who has the bytes sees a count without them, and that nothing goes
// out after stall() has returned.
ssize_t TcpProxy::send(Direction direction, const UniqueFd& socket, std::string_view bytes)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    if (settings_.lines[direction].stalled) {
        errno = EAGAIN;
        return -1;
    }
    const ssize_t sent = ::send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    forwarded_[direction] += static_cast<std::uint64_t>(std::max<ssize_t>(sent, 0));
    return sent;
}

void TcpProxy::acceptConnections()
{
    while (true) {
        std::array<pollfd, 2> watched{{{-1, POLLIN, 0}, {wakeUp_.fd(), POLLIN, 0}}};
        {
            const std::lock_guard<std::mutex> guard(mutex_);
            watched[0].fd = listener_.get();
        }
        ::poll(watched.data(), watched.size(), -1);
        wakeUp_.clear();
        const std::lock_guard<std::mutex> guard(mutex_);
        if (stopping_) {
            return;
        }
        accept();
    }
}

// Nothing when no connection waits, or the listener has been closed meanwhile.
void TcpProxy::accept()
{
    UniqueFd client = listener_.isOpen() ? acceptConnection(listener_) : UniqueFd();
    if (client.isOpen()) {
        ++connectionCount_;
        connections_.push_back(std::make_unique<Connection>(*this, std::move(client)));
    }
}

} // namespace TarnisTest
