#pragma once

#include "queue/ImmediateQueue.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/FileStreams.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>

namespace FileSystem {

/// One open file whose bytes somebody gives, in order, and whose size nobody knows. There is
/// nothing else.
class GivenBytes final : public ImmediateQueue
{
public:
    /// \param giver must outlive this.
    explicit GivenBytes(const ByteGiver& giver);
    ~GivenBytes() override;

    /// What the giver has thrown; null for nothing.
    const std::exception_ptr& exception() const noexcept { return exception_; }

private:
    bool isThere() const override { return true; }

    std::string pathOf(File /*file*/) const override { return {}; }

    std::optional<File> openItselfNow(const std::string& /*path*/, OpenMode /*mode*/) override
    {
        return File{};
    }

    std::optional<std::uint64_t> readNow(File file, std::uint64_t offset, char* buffer,
                                         std::uint64_t size) override;
    std::optional<Attributes> lookNow(File file) override;

    bool closeNow(File /*file*/) override { return true; }

    std::optional<std::size_t> ask(char* buffer, std::size_t size);

    static bool refuse() { return fail(FailureCode::Unsupported); }

    template <class Result>
    static std::optional<Result> refuseIt()
    {
        return refuse() ? std::optional<Result>(Result()) : std::nullopt;
    }

    std::optional<File> openNow(const std::string& /*path*/, OpenMode /*mode*/,
                                Permissions /*permissions*/) override
    {
        return refuseIt<File>();
    }

    bool writeNow(File /*file*/, std::uint64_t /*offset*/, const char* /*bytes*/,
                  std::uint64_t /*size*/) override
    {
        return refuse();
    }

    bool setOfFileNow(File /*file*/, const Attributes& /*attributes*/) override { return refuse(); }

    std::optional<Attributes> lookUpNow(const std::string& /*path*/) override
    {
        return refuseIt<Attributes>();
    }

    std::optional<Attributes> lookThroughNow(const std::string& /*path*/) override
    {
        return refuseIt<Attributes>();
    }

    bool listNow(const std::string& /*path*/, const EntryReceiver& /*receiver*/) override
    {
        return refuse();
    }

    bool makeDirectoryNow(const std::string& /*path*/, Permissions /*permissions*/) override
    {
        return refuse();
    }

    bool removeFileNow(const std::string& /*path*/) override { return refuse(); }

    bool removeDirectoryNow(const std::string& /*path*/) override { return refuse(); }

    bool renameNow(const std::string& /*path*/, const std::string& /*newPath*/) override
    {
        return refuse();
    }

    bool replaceNow(const std::string& /*path*/, const std::string& /*newPath*/) override
    {
        return refuse();
    }

    bool makeLinkNow(const std::string& /*target*/, const std::string& /*path*/) override
    {
        return refuse();
    }

    std::optional<std::string> readLinkNow(const std::string& /*path*/) override
    {
        return refuseIt<std::string>();
    }

    bool setOfPathNow(const std::string& /*path*/, const Attributes& /*attributes*/) override
    {
        return refuse();
    }

    std::optional<StorageSystemStorageInfo> storageInfoNow(const std::string& /*path*/) override
    {
        return refuseIt<StorageSystemStorageInfo>();
    }

    const ByteGiver& giver_;
    bool isOver_ = false;
    std::exception_ptr exception_;
};

} // namespace FileSystem
