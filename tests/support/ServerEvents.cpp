#include "support/ServerEvents.h"

#include <algorithm>

namespace TarnisTest {

namespace {

bool continues(const ServerEvent& last, const ServerEvent& next)
{
    return last.kind == ServerEvent::Kind::Data && next.kind == ServerEvent::Kind::Data &&
           last.connection == next.connection && last.channel == next.channel;
}

} // namespace

const char* toString(ServerEvent::Kind kind)
{
    using Kind = ServerEvent::Kind;
    switch (kind) {
    case Kind::Connected:
        return "Connected";
    case Kind::KeyExchangeDone:
        return "KeyExchangeDone";
    case Kind::ServiceRequest:
        return "ServiceRequest";
    case Kind::Authentication:
        return "Authentication";
    case Kind::ChannelOpen:
        return "ChannelOpen";
    case Kind::ExecRequest:
        return "ExecRequest";
    case Kind::ShellRequest:
        return "ShellRequest";
    case Kind::SubsystemRequest:
        return "SubsystemRequest";
    case Kind::EnvRequest:
        return "EnvRequest";
    case Kind::PtyRequest:
        return "PtyRequest";
    case Kind::OtherRequest:
        return "OtherRequest";
    case Kind::Signal:
        return "Signal";
    case Kind::Data:
        return "Data";
    case Kind::Eof:
        return "Eof";
    case Kind::Close:
        return "Close";
    case Kind::Disconnected:
        return "Disconnected";
    }
    return "unknown";
}

std::ostream& operator<<(std::ostream& out, ServerEvent::Kind kind)
{
    return out << toString(kind);
}

std::ostream& operator<<(std::ostream& out, const ServerEvent& event)
{
    out << event.kind << "(connection " << event.connection;
    if (event.channel != 0) {
        out << ", channel " << event.channel;
    }
    if (event.kind == ServerEvent::Kind::Authentication) {
        out << ", method " << static_cast<unsigned>(event.method) << ", user " << event.user;
    }
    if (!event.text.empty()) {
        out << ", " << event.name << " \"" << event.text << '"';
    }
    return out << ", " << event.bytes << " bytes)";
}

void EventLog::add(ServerEvent event)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    if (!events_.empty() && continues(events_.back(), event)) {
        events_.back().bytes += event.bytes;
    } else {
        events_.push_back(std::move(event));
    }
}

std::vector<ServerEvent> EventLog::all() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return events_;
}

std::vector<ServerEvent> EventLog::ofKind(ServerEvent::Kind kind) const
{
    std::vector<ServerEvent> found = all();
    found.erase(std::remove_if(found.begin(), found.end(),
                               [kind](const ServerEvent& event) { return event.kind != kind; }),
                found.end());
    return found;
}

std::size_t EventLog::count(ServerEvent::Kind kind) const
{
    return ofKind(kind).size();
}

bool EventLog::waitFor(ServerEvent::Kind kind, std::size_t times,
                       std::chrono::milliseconds limit) const
{
    return waitUntil([this, kind, times] { return count(kind) >= times; }, limit);
}

} // namespace TarnisTest
