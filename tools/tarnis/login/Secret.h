#pragma once

#include <cstring>
#include <optional>
#include <string>
#include <utility>

namespace TarnisTool {

/// A password, a pass phrase or a key. Its memory is overwritten when it is no longer needed,
/// moved-from short strings included. What an authenticator copies from it is out of reach.
class Secret
{
public:
    static constexpr std::size_t longest = 4096;

    /// \param most so long a secret never makes the string grow, which would leave copies behind.
    explicit Secret(std::size_t most = longest)
        : most_(most)
    {
        text_.reserve(most);
    }

    Secret(const Secret&) = delete;
    Secret& operator=(const Secret&) = delete;

    Secret(Secret&& other) noexcept
        : most_(other.most_)
        , text_(std::move(other.text_))
    {
        other.wipe();
    }

    Secret& operator=(Secret&& other) noexcept
    {
        if (this != &other) {
            wipe();
            most_ = other.most_;
            text_.swap(other.text_);
        }
        return *this;
    }

    ~Secret() { wipe(); }

    /// False: there is no room for another character.
    bool append(char character)
    {
        if (text_.size() >= most_) {
            return false;
        }
        text_.push_back(character);
        return true;
    }

    const std::string& text() const noexcept { return text_; }

    bool isEmpty() const noexcept { return text_.empty(); }

private:
    void wipe() noexcept
    {
        text_.resize(text_.capacity());
        ::explicit_bzero(text_.data(), text_.size());
        text_.clear();
    }

    std::size_t most_;
    std::string text_;
};

/// Where a caller without a terminal has put a password or a pass phrase. Never an argument: those
/// can be read by every user of the machine.
struct SecretSource
{
    /// A file descriptor that the program inherited; its first unread line is the secret.
    std::optional<int> descriptor;
    /// The name of an environment variable.
    std::string variable;

    bool isNamed() const noexcept { return descriptor.has_value() || !variable.empty(); }

    /// Fetches the secret; empty when no source is named.
    /// \param what "password" or "pass phrase", for the message.
    /// Throws UsageError when there is nothing to be had where the caller said.
    std::optional<Secret> read(const std::string& what) const;
};

} // namespace TarnisTool
