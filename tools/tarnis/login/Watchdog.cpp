#include "login/Watchdog.h"

namespace TarnisTool {

Watchdog::Watchdog(Tarnis::SSHSession& session, std::chrono::milliseconds limit)
    : session_(session)
{
    if (limit > std::chrono::milliseconds::zero()) {
        thread_ = std::thread([this, limit] { watch(limit); });
    }
}

Watchdog::~Watchdog()
{
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        isOver_ = true;
    }
    condition_.notify_one();
    if (thread_.joinable()) {
        thread_.join();
    }
}

bool Watchdog::hasBitten() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return hasBitten_;
}

void Watchdog::watch(std::chrono::milliseconds limit)
{
    std::unique_lock<std::mutex> lock(mutex_);
    if (!condition_.wait_for(lock, limit, [this] { return isOver_; })) {
        hasBitten_ = true;
        session_.interrupt();
    }
}

} // namespace TarnisTool
