#include "memory/MemoryFaults.h"

#include "failure/CallbackScope.h"

#include <FileSystem/FailureScope.h>

#include <algorithm>
#include <utility>

namespace FileSystem {

namespace {

/// Whether the step may be taken, shortened perhaps. Otherwise says why not.
bool isLet(const std::optional<MemoryFault>& fault, const MemoryOperation& operation)
{
    if (!fault || fault->size) {
        return true;
    }
    const auto code = fault->code ? fault->code : make_error_code(FailureCode::Other);
    return fail(code, fault->text, operation.path);
}

} // namespace

void MemoryFaults::setFunction(MemoryFaultFunction function)
{
    auto wanted = function ? std::make_shared<const MemoryFaultFunction>(std::move(function))
                           : std::shared_ptr<const MemoryFaultFunction>();
    const std::lock_guard<std::mutex> lock(mutex_);
    // The one before goes without the lock: what it has captured may use the system.
    function_.swap(wanted);
}

bool MemoryFaults::let(const MemoryOperation& operation) const
{
    return isLet(ask(operation), operation);
}

std::optional<std::uint64_t> MemoryFaults::letMove(const MemoryOperation& operation) const
{
    const auto fault = ask(operation);
    if (!isLet(fault, operation)) {
        return std::nullopt;
    }
    return fault ? std::min(operation.size, *fault->size) : operation.size;
}

std::optional<MemoryFault> MemoryFaults::ask(const MemoryOperation& operation) const
{
    std::shared_ptr<const MemoryFaultFunction> function;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        function = function_;
    }
    if (function == nullptr) {
        return std::nullopt;
    }
    const CallbackScope scope;
    return (*function)(operation);
}

} // namespace FileSystem
