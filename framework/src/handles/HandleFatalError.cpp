#include "failure/FailureRecord.h"

#include <FileSystem/HandleFatalError.h>

namespace FileSystem {

handle_fatal_error::handle_fatal_error(const char* text)
    : std::runtime_error(text)
{
    // An operation that an exception ends cannot see which one it is.
    if (auto* const record = FailureRecord::ofThisThread()) {
        record->expectLoss();
    }
}

// Out of line: the class needs one home for its type information, or it could not be caught across
// library boundaries.
handle_fatal_error::~handle_fatal_error() = default;

} // namespace FileSystem
