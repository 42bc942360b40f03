#pragma once

#include <FileSystem/Failure.h>
#include <FileSystem/TreeOperations.h>

#include <cstdint>
#include <functional>
#include <string>

namespace FileSystem {

class StorageSystem;

/// Looks through a tree before anything is copied: how much it is, and whether all of it can be
/// copied.
class TreeSurvey final : private TreeObserver
{
public:
    /// Told how many bytes were found; false: stop.
    using GoesOn = std::function<bool(std::uint64_t bytes)>;

    TreeSurvey(const StorageSystem& source, const StorageSystem& target, GoesOn goesOn);
    ~TreeSurvey() override;

    /// False: not all of it can be copied, or nobody wants it to be.
    bool survey(const std::string& path);

    std::uint64_t bytes() const noexcept { return bytes_; }

    /// Why not, and what.
    const Failure& refusal() const noexcept { return refusal_; }

    const TreeEntry& refused() const noexcept { return refused_; }

private:
    bool wants(const TreeEntry& entry) override;
    bool failed(const TreeEntry& entry, const Failure& failure) override;
    bool progress(const TreeProgress& progress) override;

    void refuse(const TreeEntry& entry, FailureCode code, std::string text = {});

    const StorageSystem& source_;
    bool hasLinks_;
    GoesOn goesOn_;
    TreeEntry root_;
    std::uint64_t bytes_ = 0;
    Failure refusal_;
    TreeEntry refused_;
};

/// Said of a link that is to go there.
inline constexpr const char* noLinksThere = "the target has no symbolic links";

} // namespace FileSystem
