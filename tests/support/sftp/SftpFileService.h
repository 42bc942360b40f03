#pragma once

#include "support/sftp/SftpScript.h"
#include "support/sftp/SftpWire.h"

#include <filesystem>
#include <map>
#include <memory>

#include <sys/stat.h>

namespace TarnisTest {

/// Carries SFTP requests out on the local file system, in the way that a script says.
///
/// Paths are real ones; relative ones begin at the root. A request to change something outside the
/// root is answered with PermissionDenied, so that a test that goes astray does no harm.
class SftpFileService
{
public:
    /// The script may change between requests.
    SftpFileService(const std::filesystem::path& root, const SftpScript& script);
    SftpFileService(const SftpFileService&) = delete;
    SftpFileService& operator=(const SftpFileService&) = delete;
    ~SftpFileService();

    /// The reply. Throws MalformedPacket when the request does not hold what it must.
    SftpMessage carryOut(const SftpMessage& request);

    /// What a handle was opened for; empty when there is no such handle.
    std::string pathOfHandle(const std::string& handle) const;

private:
    struct Opened;

    SftpMessage open(SftpReader& in);
    SftpMessage close(SftpReader& in);
    SftpMessage read(SftpReader& in);
    SftpMessage write(SftpReader& in);
    SftpMessage setAttributes(SftpReader& in) const;
    SftpMessage setAttributesOfOpened(SftpReader& in) const;
    SftpMessage openDirectory(SftpReader& in);
    SftpMessage readDirectory(SftpReader& in);
    SftpMessage remove(SftpReader& in, int (*how)(const char*)) const;
    SftpMessage rename(SftpReader& in, bool replaces) const;
    SftpMessage makeDirectory(SftpReader& in) const;
    SftpMessage realPath(SftpReader& in) const;
    SftpMessage readLink(SftpReader& in) const;
    SftpMessage makeLink(SftpReader& in) const;
    SftpMessage extended(SftpReader& in) const;
    SftpMessage copy(SftpReader& in) const;

    SftpMessage attributes(int result, const struct stat& info) const;
    void setModeOfNew(const std::string& path, std::uint32_t asked, std::uint32_t everybodys) const;
    bool isEmptiedOnOpening(std::uint32_t flags) const;
    std::string attributeBlock(const struct stat& info) const;
    std::string nameEntry(const std::string& name, const struct stat& info) const;
    std::vector<std::string> listing(const std::string& path) const;
    std::string absolute(const std::string& path) const;
    // All three set errno when the answer is no.
    bool isInside(const std::filesystem::path& place) const;
    /// For what would be removed, made or renamed there: a link itself.
    bool mayChange(const std::string& path) const;
    /// For what a link there leads to.
    bool mayChangeTarget(const std::string& path) const;
    Opened* find(const std::string& handle) const;
    int descriptorOf(const std::string& handle) const;
    SftpMessage keep(std::unique_ptr<Opened> opened);

    std::filesystem::path root_;
    const SftpScript& script_;
    std::map<std::string, std::unique_ptr<Opened>> opened_;
    std::uint64_t handleCount_ = 0;
    std::uint64_t written_ = 0;
};

/// A Status reply, without an id.
SftpMessage sftpStatus(SftpStatus status);

} // namespace TarnisTest
