#pragma once

#include <FileSystem/Export.h>

#include <array>
#include <cstddef>
#include <string>
#include <system_error>

namespace FileSystem {

/// One code of a category: its number, what it means to people, and the conditions of the standard
/// that it compares equal to. std::errc() stands for none.
struct FailureMeaning
{
    template <class Code>
    constexpr FailureMeaning(Code theCode, const char* theText, std::errc theCondition = {},
                             std::errc theOtherCondition = {})
        : code(static_cast<int>(theCode))
        , text(theText)
        , condition(theCondition)
        , otherCondition(theOtherCondition)
    {}

    int code;
    const char* text;
    std::errc condition;
    std::errc otherCondition;
};

/// A category of codes that compare with std::errc: for a library on top of a storage system, whose
/// failures have meanings of their own. The name and the table are lent for the category's life.
class FILESYSTEM_EXPORT FailureCategory final : public std::error_category
{
public:
    template <std::size_t Count>
    FailureCategory(const char* name, const std::array<FailureMeaning, Count>& meanings) noexcept
        : name_(name)
        , meanings_(meanings.data())
        , count_(Count)
    {}

    const char* name() const noexcept override;
    std::string message(int code) const override;
    std::error_condition default_error_condition(int code) const noexcept override;
    bool equivalent(int code, const std::error_condition& condition) const noexcept override;

private:
    const FailureMeaning* meaningOf(int code) const noexcept;

    const char* name_;
    const FailureMeaning* meanings_;
    std::size_t count_;
};

} // namespace FileSystem
