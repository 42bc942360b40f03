#include <FileSystem/FailureCategory.h>

namespace FileSystem {

namespace {

bool isCondition(std::errc meant, const std::error_condition& condition) noexcept
{
    return meant != std::errc() && condition == std::make_error_condition(meant);
}

} // namespace

const char* FailureCategory::name() const noexcept
{
    return name_;
}

std::string FailureCategory::message(int code) const
{
    const auto* const meaning = meaningOf(code);
    return meaning != nullptr ? meaning->text : "unknown failure";
}

std::error_condition FailureCategory::default_error_condition(int code) const noexcept
{
    const auto* const meaning = meaningOf(code);
    return meaning != nullptr && meaning->condition != std::errc()
               ? std::make_error_condition(meaning->condition)
               : std::error_condition(code, *this);
}

bool FailureCategory::equivalent(int code, const std::error_condition& condition) const noexcept
{
    const auto* const meaning = meaningOf(code);
    return (meaning != nullptr && isCondition(meaning->otherCondition, condition)) ||
           default_error_condition(code) == condition;
}

const FailureMeaning* FailureCategory::meaningOf(int code) const noexcept
{
    for (std::size_t i = 0; i < count_; ++i) {
        if (meanings_[i].code == code) {
            return &meanings_[i];
        }
    }
    return nullptr;
}

} // namespace FileSystem
