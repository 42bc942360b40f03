#pragma once

#include <FileSystem/MemoryFileSystem.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>

namespace FileSystem {

/// Asks the fault function of one MemoryFileSystem, if it has one. Any thread may use it.
class MemoryFaults
{
public:
    void setFunction(MemoryFaultFunction function);

    /// Whether the step may be taken. Otherwise the reason has been told.
    bool let(const MemoryOperation& operation) const;

    /// How many bytes a Read or a Write may move; empty when it is to fail, and the reason has been
    /// told.
    std::optional<std::uint64_t> letMove(const MemoryOperation& operation) const;

private:
    std::optional<MemoryFault> ask(const MemoryOperation& operation) const;

    mutable std::mutex mutex_;
    std::shared_ptr<const MemoryFaultFunction> function_;
};

} // namespace FileSystem
