// Only the layout of the classes below is looked at; nothing here is ever run. A compiler's dump
// names the slots of a class that is implemented, not those of an abstract one, and does not tell
// overloads apart. So each abstract class gets a probe that implements it, one base per overload.

#include "auth/SSHSessionHostAuthenticator.h"
#include "auth/SSHSessionUserAuthenticator.h"
#include "handles/SSHHandleChannel.h"
#include "handles/SSHHandleSFTPSession.h"
#include "handles/SSHHandleSFTPSessionFile.h"
#include "handles/SSHHandleSession.h"

#include <FileSystem/FileSystem2.h>
#include <FileSystem/FileSystem2File.h>
#include <FileSystem/HandleObjectCore.h>
#include <FileSystem/HandleObjectCoreComposite.h>
#include <FileSystem/LocalFileSystem.h>
#include <FileSystem/MemoryFileSystem.h>
#include <FileSystem/StorageSystemFileServices.h>
#include <FileSystem/StorageSystemServices.h>
#include <Tarnis/HostAuthenticator.h>
#include <Tarnis/HostAuthenticatorResponse.h>
#include <Tarnis/RemoteSession.h>
#include <Tarnis/SSHChannel.h>
#include <Tarnis/SSHFileSystemSFTP.h>
#include <Tarnis/SSHFileSystemSFTPFile.h>
#include <Tarnis/SSHProcess.h>
#include <Tarnis/SSHSession.h>
#include <Tarnis/SessionBlockingGuard.h>
#include <Tarnis/UserAuthenticator.h>
#include <Tarnis/UserAuthenticatorResponse.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// The names of the probes become the names in the list.
namespace Probe {

/// Implements the visit of one class.
template <class Visited, class Base>
struct Visit : Base
{
    using Base::visit;

    void visit(Visited& visited) override;
};

/// Implements one of the two accept operations.
template <class Visitor, class Base>
struct Accept : Base
{
    void do_accept(Visitor& visitor) override;
};

template <class Visitor, class Base>
struct AcceptConst : Base
{
    void do_accept(Visitor& visitor) const override;
};

using namespace Tarnis;

template <class Base, class Last, class... Others>
struct VisitAll : Visit<Last, VisitAll<Base, Others...>>
{};

template <class Base, class First>
struct VisitAll<Base, First> : Visit<First, Base>
{};

struct HostAuthenticatorVisitorConst
    : VisitAll<Tarnis::HostAuthenticatorVisitorConst, const HostAuthenticatorNone,
               const HostAuthenticatorHostKey, const HostAuthenticatorKnownHostFile>
{};

struct HostAuthenticatorVisitor : VisitAll<Tarnis::HostAuthenticatorVisitor, HostAuthenticatorNone,
                                           HostAuthenticatorHostKey, HostAuthenticatorKnownHostFile>
{};

struct HostAuthenticatorResponseVisitorConst
    : VisitAll<Tarnis::HostAuthenticatorResponseVisitorConst, const HostAuthenticatorResponseNone,
               const HostAuthenticatorResponseHostKey, const HostAuthenticatorResponseKnownHostFile>
{};

struct HostAuthenticatorResponseVisitor
    : VisitAll<Tarnis::HostAuthenticatorResponseVisitor, HostAuthenticatorResponseNone,
               HostAuthenticatorResponseHostKey, HostAuthenticatorResponseKnownHostFile>
{};

struct UserAuthenticatorVisitorConst
    : VisitAll<Tarnis::UserAuthenticatorVisitorConst, const UserAuthenticatorNone,
               const UserAuthenticatorPassword, const UserAuthenticatorPrivateKey,
               const UserAuthenticatorPrivateKeyFile, const UserAuthenticatorPrivateKeyAuto>
{};

struct UserAuthenticatorVisitor
    : VisitAll<Tarnis::UserAuthenticatorVisitor, UserAuthenticatorNone, UserAuthenticatorPassword,
               UserAuthenticatorPrivateKey, UserAuthenticatorPrivateKeyFile,
               UserAuthenticatorPrivateKeyAuto>
{};

struct UserAuthenticatorResponseVisitorConst
    : VisitAll<Tarnis::UserAuthenticatorResponseVisitorConst, const UserAuthenticatorResponseNone,
               const UserAuthenticatorResponsePassword, const UserAuthenticatorResponsePrivateKey,
               const UserAuthenticatorResponsePrivateKeyFile,
               const UserAuthenticatorResponsePrivateKeyAuto>
{};

struct UserAuthenticatorResponseVisitor
    : VisitAll<Tarnis::UserAuthenticatorResponseVisitor, UserAuthenticatorResponseNone,
               UserAuthenticatorResponsePassword, UserAuthenticatorResponsePrivateKey,
               UserAuthenticatorResponsePrivateKeyFile, UserAuthenticatorResponsePrivateKeyAuto>
{};

struct HostAuthenticator
    : Accept<Tarnis::HostAuthenticatorVisitor,
             AcceptConst<Tarnis::HostAuthenticatorVisitorConst, Tarnis::HostAuthenticator>>
{
    HostAuthenticationType do_getType() const override;
    bool do_isEqual(const Tarnis::HostAuthenticator& other) const override;
};

struct UserAuthenticator
    : Accept<Tarnis::UserAuthenticatorVisitor,
             AcceptConst<Tarnis::UserAuthenticatorVisitorConst, Tarnis::UserAuthenticator>>
{
    UserAuthenticationType do_getType() const override;
    bool do_isEqual(const Tarnis::UserAuthenticator& other) const override;
};

template <class Base>
using AcceptsHostResponseVisitors =
    Accept<Tarnis::HostAuthenticatorResponseVisitor,
           AcceptConst<Tarnis::HostAuthenticatorResponseVisitorConst, Base>>;

struct HostAuthenticatorResponse : AcceptsHostResponseVisitors<Tarnis::HostAuthenticatorResponse>
{
    HostAuthenticationType do_getType() const override;
    AuthenticateHostResult do_getResult() const override;
};

struct HostAuthenticatorResponseBase
    : AcceptsHostResponseVisitors<Tarnis::HostAuthenticatorResponseBase>
{
    HostAuthenticationType do_getType() const override;
};

template <class Base>
using AcceptsUserResponseVisitors =
    Accept<Tarnis::UserAuthenticatorResponseVisitor,
           AcceptConst<Tarnis::UserAuthenticatorResponseVisitorConst, Base>>;

struct UserAuthenticatorResponse : AcceptsUserResponseVisitors<Tarnis::UserAuthenticatorResponse>
{
    UserAuthenticationType do_getType() const override;
    AuthenticateUserResult do_getResult() const override;
};

struct UserAuthenticatorResponseBase
    : AcceptsUserResponseVisitors<Tarnis::UserAuthenticatorResponseBase>
{
    UserAuthenticationType do_getType() const override;
};

struct RemoteSession : Tarnis::RemoteSession
{
    bool do_connect() override;
    bool do_disconnect() override;
    RemoteSessionState do_getState() override;
    bool do_setUserName(const std::string& userName) override;
    std::string do_getUserName() override;
    bool do_setHostName(const std::string& hostName) override;
    std::string do_getHostName() override;
    bool do_setPortNumber(unsigned short port) override;
    unsigned short do_getPortNumber() const override;
    std::unique_ptr<Tarnis::HostAuthenticatorResponse>
    do_hostAuthenticate(const Tarnis::HostAuthenticator& authenticator) override;
    std::unique_ptr<Tarnis::UserAuthenticatorResponse>
    do_userAuthenticate(const Tarnis::UserAuthenticator& authenticator) override;
};

} // namespace Probe

// The same for the classes of the storage framework.
namespace FrameworkProbe {

/// Implements one of the two operations that remove a directory: by path and `Argument`, or with
/// void by path alone.
template <class Argument, class Base>
struct Remove : Base
{
    using Base::do_directoryRemove;

    bool do_directoryRemove(const std::string& path, Argument recursive) const override;
};

template <class Base>
struct Remove<void, Base> : Base
{
    using Base::do_directoryRemove;

    bool do_directoryRemove(const std::string& path) const override;
};

using namespace FileSystem;

struct FileSystem2 : Remove<void, Remove<bool, FileSystem::FileSystem2>>
{
    std::string do_hostName() const override;
    StorageSystemType do_getType() const override;
    bool do_isValid() const override;
    std::unique_ptr<StorageSystemFile>
    do_fileOpen(const std::string& path, Utilities::Flags<StorageSystemFileOpenModeFlag> mode,
                Utilities::Flags<PosixFilePermissionFlag> permissions) const override;
    std::optional<StorageSystemFileInfo> do_fileInfo(const std::string& path) const override;
    std::optional<StorageSystemStorageInfo>
    do_fileStorageInfo(const std::string& path) const override;
    bool do_fileRemove(const std::string& path) const override;
    bool do_fileSetPermissions(
        const std::string& path,
        const Utilities::Flags<PosixFilePermissionFlag>& permissions) const override;
    bool do_fileSetModTime(const std::string& path, StorageSystemTimePoint time) const override;
    std::optional<std::string> do_fileSymbolicLinkTarget(const std::string& path) const override;
    bool do_fileSymbolicLinkRemove(const std::string& path) const override;
    std::vector<StorageSystemDirectoryInfo>
    do_directoryList(const std::string& path, const std::string& filter,
                     StorageSystemDirectoryFilterType type) const override;
    std::vector<StorageSystemFileInfo>
    do_directoryFileInfoList(const std::string& path, const std::string& filter,
                             StorageSystemDirectoryFilterType type) const override;
    std::vector<std::string>
    do_directoryListFileNames(const std::string& path, const std::string& filter,
                              StorageSystemDirectoryFilterType type) const override;
    std::optional<std::string>
    do_directorySymbolicLinkTarget(const std::string& path) const override;
    bool do_directorySymbolicLinkRemove(const std::string& path) const override;
    bool do_fileRenameAs(const std::string& path, const std::string& newPath) const override;
    bool do_fileSymbolicLinkCreateAs(const std::string& target, const std::string& linkPath,
                                     bool failIfLinkExists) const override;
    bool do_directoryCreateAs(const std::string& path, bool exclusive,
                              Utilities::Flags<PosixFilePermissionFlag> permissions) const override;
    bool do_directorySymbolicLinkCreateAs(const std::string& target, const std::string& linkPath,
                                          bool failIfLinkExists) const override;
};

template <class Base>
struct OpenFile : Base
{
    bool do_isValid() const override;
    std::string do_fileId() override;
    Utilities::Flags<StorageSystemFileOpenModeFlag> do_mode() override;
    bool do_eof() const override;
    bool do_seek(std::uint64_t offset) const override;
    std::optional<std::uint64_t> do_tell() override;
    bool do_error() const override;
    std::uint64_t do_read(char* buffer, std::uint64_t size) const override;
    std::uint64_t do_write(const char* buffer, std::uint64_t size) const override;
};

struct StorageSystemServices : FileSystem::StorageSystemServices
{
    using FileSystem::StorageSystemServices::StorageSystemServices;

    ~StorageSystemServices() override;
    std::unique_ptr<StorageSystemQueue>
    createQueue(const std::shared_ptr<const std::atomic<bool>>& isAlive,
                const std::function<bool()>& goesOn) const override;
    std::optional<std::vector<StorageSystemFileInfo>>
    readDirectory(const std::string& path) const override;
    std::optional<std::string> startDirectory() const override;
    bool replace(const std::string& path, const std::string& newPath) const override;
    std::unique_ptr<FileSystem::StorageSystemFile> openItself(const std::string& path,
                                                              OpenMode mode) const override;
    bool leadsToNoFile(const std::string& path) const override;
    std::optional<StorageSystemAttributes> look(const std::string& path) const override;
};

struct StorageSystemFile : OpenFile<FileSystem::StorageSystemFile>
{
    std::string do_parentDirectoryId() override;
    std::string do_name() override;
    const StorageSystem& do_storageSystem() override;
};

struct FileSystem2File : OpenFile<FileSystem::FileSystem2File>
{
    const FileSystem::FileSystem2& do_fileSystem() const override;
};

} // namespace FrameworkProbe
