#pragma once

#include <FileSystem/Failure.h>
#include <FileSystem/FailureScope.h>

#include <string>
#include <utility>

namespace FileSystem {

/// A failure for whoever is told of it, of an operation on a path. Replaces what was noted in the
/// public operation at hand.
inline Failure newFailure(const char* operation, const std::string& path, FailureCode code,
                          std::string text = {})
{
    FailureScope scope(operation, path);
    scope.result(fail(code, std::move(text)));
    return Failure::last();
}

/// The same failure with another text.
inline Failure withText(const Failure& why, std::string text)
{
    const std::string operation = why.operation();
    const std::string path = why.path();
    FailureScope scope(operation.c_str(), path);
    scope.result(fail(why.code(), why.source(), why.number(), std::move(text), why.entry()));
    return Failure::last();
}

} // namespace FileSystem
