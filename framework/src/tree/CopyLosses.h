#pragma once

#include <FileSystem/FailureScope.h>

#include <cstdint>
#include <string>
#include <utility>

namespace FileSystem {

/// What was to be preserved and is not, and what has been replaced and cannot be removed, in a copy
/// that goes on all the same.
class CopyLosses
{
public:
    /// \param loss NotKept or NotRemoved, with what is lost as its text.
    void add(const std::string& path, const Failure& loss)
    {
        (loss.code() == FailureCode::NotRemoved ? left_ : unkept_).add(path, loss.text());
    }

    /// Whether there is none of either. Otherwise that is told as the failure.
    bool areNone() const
    {
        if (unkept_.count == 0 && left_.count == 0) {
            return true;
        }
        if (unkept_.count == 0) {
            return fail(FailureCode::NotRemoved, left_.text(), left_.path);
        }
        const char* separator = left_.count != 0 ? "; " : "";
        return fail(FailureCode::NotKept, unkept_.text() + separator + left_.text(), unkept_.path);
    }

private:
    /// The first of a kind, and how many there are.
    struct Kind
    {
        std::uint64_t count = 0;
        std::string path;
        std::string first;

        void add(const std::string& where, std::string what)
        {
            if (count++ == 0) {
                path = where;
                first = std::move(what);
            }
        }

        std::string text() const
        {
            return count < 2 ? first : first + ", and " + std::to_string(count - 1) + " more";
        }
    };

    Kind unkept_;
    Kind left_;
};

} // namespace FileSystem
