#include "support/sftp/SftpFileService.h"

#include "support/UniqueFd.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <optional>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <strings.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace TarnisTest {

namespace fs = std::filesystem;

namespace {

SftpStatus statusOf(int error)
{
    switch (error) {
    case ENOENT:
        return SftpStatus::NoSuchFile;
    case EACCES:
    case EPERM:
        return SftpStatus::PermissionDenied;
    default:
        return SftpStatus::Failure;
    }
}

// The reply to a system call that returned -1, or did not.
SftpMessage outcome(int result)
{
    return sftpStatus(result == 0 ? SftpStatus::Ok : statusOf(errno));
}

const char* textOf(SftpStatus status)
{
    switch (status) {
    case SftpStatus::Ok:
        return "Success";
    case SftpStatus::Eof:
        return "End of file";
    case SftpStatus::NoSuchFile:
        return "No such file";
    case SftpStatus::PermissionDenied:
        return "Permission denied";
    default:
        return "Failure";
    }
}

int posixFlags(std::uint32_t flags)
{
    const bool reads = (flags & SftpOpen::kRead) != 0;
    const bool writes = (flags & SftpOpen::kWrite) != 0;
    int result = writes ? (reads ? O_RDWR : O_WRONLY) : O_RDONLY;
    result |= (flags & SftpOpen::kAppend) != 0 ? O_APPEND : 0;
    result |= (flags & SftpOpen::kCreate) != 0 ? O_CREAT : 0;
    result |= (flags & SftpOpen::kTruncate) != 0 ? O_TRUNC : 0;
    result |= (flags & SftpOpen::kExclusive) != 0 ? O_EXCL : 0;
    return result | O_CLOEXEC;
}

// An attribute block of a request.
struct WantedAttributes
{
    explicit WantedAttributes(SftpReader& in)
    {
        const std::uint32_t flags = in.number();
        if ((flags & SftpAttribute::kSize) != 0) {
            size = in.number64();
        }
        if ((flags & SftpAttribute::kOwner) != 0) {
            user = in.number();
            group = in.number();
        }
        if ((flags & SftpAttribute::kPermissions) != 0) {
            permissions = in.number() & 07777U;
        }
        if ((flags & SftpAttribute::kTimes) != 0) {
            accessed = in.number();
            modified = in.number();
        }
    }

    std::optional<std::uint64_t> size;
    std::optional<std::uint32_t> user;
    std::uint32_t group = 0;
    std::optional<std::uint32_t> permissions;
    std::optional<std::uint32_t> accessed;
    std::uint32_t modified = 0;
};

// How a file that is already open is named: a handle for reading can set a size, too.
std::string pathOfDescriptor(const UniqueFd& file)
{
    return "/proc/self/fd/" + std::to_string(file.get());
}

int applyAttributes(const WantedAttributes& wanted, const std::string& path)
{
    if (wanted.size && ::truncate(path.c_str(), static_cast<off_t>(*wanted.size)) != 0) {
        return -1;
    }
    if (wanted.permissions && ::chmod(path.c_str(), *wanted.permissions) != 0) {
        return -1;
    }
    if (wanted.accessed) {
        const timespec times[2] = {{static_cast<time_t>(*wanted.accessed), 0},
                                   {static_cast<time_t>(wanted.modified), 0}};
        if (::utimensat(AT_FDCWD, path.c_str(), times, 0) != 0) {
            return -1;
        }
    }
    return wanted.user ? ::chown(path.c_str(), *wanted.user, wanted.group) : 0;
}

std::string readWholeLink(const std::string& path)
{
    std::error_code error;
    const fs::path target = fs::read_symlink(path, error);
    errno = error.value();
    return error ? std::string() : target.string();
}

SftpMessage oneName(const std::string& name)
{
    constexpr std::uint32_t kNoAttributes = 0;
    return {SftpPacket::Name, 0,
            SftpWriter().number(1).text(name).text(name).number(kNoAttributes).bytes()};
}

// The path with its last names spelled as they stand there, if only their case differs.
std::string asSpelled(const fs::path& path)
{
    if (!path.has_relative_path() || fs::symlink_status(path).type() != fs::file_type::not_found) {
        return path.string();
    }
    const fs::path parent = asSpelled(path.parent_path());
    const std::string wanted = path.filename().string();
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(parent, error)) {
        const std::string name = entry.path().filename().string();
        if (::strcasecmp(name.c_str(), wanted.c_str()) == 0) {
            return entry.path().string();
        }
    }
    return (parent / wanted).string();
}

bool isAnnounced(const SftpScript& script, const std::string& extension)
{
    return std::any_of(script.extensions.begin(), script.extensions.end(),
                       [&](const SftpExtension& known) { return known.name == extension; });
}

SftpMessage limits()
{
    SftpWriter out;
    for (const std::uint64_t limit : {262'144U, 261'120U, 261'120U, 1'000U}) {
        out.number64(limit);
    }
    return {SftpPacket::ExtendedReply, 0, out.bytes()};
}

SftpMessage volume(const std::string& path)
{
    struct statvfs info
    {};

    if (::statvfs(path.c_str(), &info) != 0) {
        return outcome(-1);
    }
    SftpWriter out;
    for (const std::uint64_t figure :
         {std::uint64_t(info.f_bsize), std::uint64_t(info.f_frsize), std::uint64_t(info.f_blocks),
          std::uint64_t(info.f_bfree), std::uint64_t(info.f_bavail), std::uint64_t(info.f_files),
          std::uint64_t(info.f_ffree), std::uint64_t(info.f_favail), std::uint64_t(info.f_fsid),
          std::uint64_t(info.f_flag), std::uint64_t(info.f_namemax)}) {
        out.number64(figure);
    }
    return {SftpPacket::ExtendedReply, 0, out.bytes()};
}

} // namespace

SftpMessage sftpStatus(SftpStatus status)
{
    SftpWriter body;
    body.number(static_cast<std::uint32_t>(status)).text(textOf(status)).text("");
    return {SftpPacket::Status, 0, body.bytes()};
}

// A file, or a directory with the names that are still to be told.
struct SftpFileService::Opened
{
    std::string path;
    UniqueFd file;
    bool isDirectory = false;
    std::vector<std::string> entries;
    std::size_t told = 0;
    bool isWritten = false;
};

SftpFileService::SftpFileService(const fs::path& root, const SftpScript& script)
    : root_(fs::canonical(root))
    , script_(script)
{}

SftpFileService::~SftpFileService() = default;

SftpMessage SftpFileService::carryOut(const SftpMessage& request)
{
    SftpReader in(request.body);

    struct stat info
    {};

    switch (request.type) {
    case SftpPacket::Open:
        return open(in);
    case SftpPacket::Close:
        return close(in);
    case SftpPacket::Read:
        return read(in);
    case SftpPacket::Write:
        return write(in);
    case SftpPacket::Lstat:
        return attributes(
            (script_.followsLinks ? ::stat : ::lstat)(absolute(in.text()).c_str(), &info), info);
    case SftpPacket::Stat:
        return attributes(::stat(absolute(in.text()).c_str(), &info), info);
    case SftpPacket::Fstat:
        return attributes(::fstat(descriptorOf(in.text()), &info), info);
    case SftpPacket::Setstat:
        return setAttributes(in);
    case SftpPacket::Fsetstat:
        return setAttributesOfOpened(in);
    case SftpPacket::Opendir:
        return openDirectory(in);
    case SftpPacket::Readdir:
        return readDirectory(in);
    case SftpPacket::Remove:
        return remove(in, ::unlink);
    case SftpPacket::Mkdir:
        return makeDirectory(in);
    case SftpPacket::Rmdir:
        return remove(in, ::rmdir);
    case SftpPacket::Realpath:
        return realPath(in);
    case SftpPacket::Rename:
        return rename(in, script_.renameReplaces);
    case SftpPacket::Readlink:
        return readLink(in);
    case SftpPacket::Symlink:
        return makeLink(in);
    case SftpPacket::Extended:
        return extended(in);
    default:
        return sftpStatus(SftpStatus::OpUnsupported);
    }
}

std::string SftpFileService::pathOfHandle(const std::string& handle) const
{
    const Opened* const opened = find(handle);
    return opened != nullptr ? opened->path : std::string();
}

SftpMessage SftpFileService::open(SftpReader& in)
{
    auto opened = std::make_unique<Opened>();
    opened->path = absolute(in.text());
    const std::uint32_t flags = in.number();
    const WantedAttributes wanted(in);
    const bool reads = flags == SftpOpen::kRead;
    if (!reads && !mayChangeTarget(opened->path)) {
        return outcome(-1);
    }
    const bool creates = (flags & SftpOpen::kCreate) != 0;
    if (creates && script_.refusesReadingNew && (flags & SftpOpen::kRead) != 0) {
        return sftpStatus(SftpStatus::PermissionDenied);
    }
    const bool isNew = creates && !fs::exists(opened->path);
    const std::uint32_t mode = wanted.permissions.value_or(0666);
    const int ignored = script_.ignoresExclusive ? O_EXCL : 0;
    const int added = isEmptiedOnOpening(flags) ? O_TRUNC : 0;
    opened->file =
        UniqueFd(::open(opened->path.c_str(), (posixFlags(flags) & ~ignored) | added, mode));
    if (!opened->file.isOpen()) {
        return outcome(-1);
    }
    if (isNew) {
        setModeOfNew(opened->path, mode, 0666);
    }
    return keep(std::move(opened));
}

bool SftpFileService::isEmptiedOnOpening(std::uint32_t flags) const
{
    const bool writes = (flags & SftpOpen::kWrite) != 0;
    const bool reads = (flags & SftpOpen::kRead) != 0;
    return writes && (script_.emptying == SftpEmptying::OpenedToWrite ||
                      (script_.emptying == SftpEmptying::OpenedToWriteOnly && !reads));
}

void SftpFileService::setModeOfNew(const std::string& path, std::uint32_t asked,
                                   std::uint32_t everybodys) const
{
    if (script_.ignoresModes || script_.umask) {
        const std::uint32_t mode = script_.ignoresModes ? everybodys : asked;
        ::chmod(path.c_str(), mode & ~static_cast<std::uint32_t>(script_.umask.value_or(0)));
    }
}

SftpMessage SftpFileService::close(SftpReader& in)
{
    return sftpStatus(opened_.erase(in.text()) == 1 ? SftpStatus::Ok : SftpStatus::Failure);
}

SftpMessage SftpFileService::read(SftpReader& in)
{
    const Opened* const opened = find(in.text());
    const std::uint64_t offset = in.number64();
    const std::uint64_t length = in.number();
    if (opened == nullptr || opened->isDirectory) {
        return sftpStatus(SftpStatus::Failure);
    }
    constexpr std::uint64_t kMostAtOnce = 0x4000000;
    const std::uint64_t wanted = std::max(length, script_.minReadReply.value_or(length));
    std::string data(std::min({wanted, script_.maxReadReply.value_or(wanted), kMostAtOnce}), '\0');
    const ssize_t count =
        ::pread(opened->file.get(), data.data(), data.size(), static_cast<off_t>(offset));
    if (count < 0) {
        return outcome(-1);
    }
    if (count == 0 && length > 0) {
        return sftpStatus(SftpStatus::Eof);
    }
    data.resize(static_cast<std::size_t>(count));
    return {SftpPacket::Data, 0, SftpWriter().text(data).bytes()};
}

SftpMessage SftpFileService::write(SftpReader& in)
{
    Opened* const opened = find(in.text());
    const std::uint64_t offset = in.number64();
    const std::string data = in.text();
    const auto& badByte = script_.failWriteAt;
    if (opened == nullptr || opened->isDirectory ||
        data.size() > script_.maxWrite.value_or(data.size()) ||
        (badByte && offset <= *badByte && *badByte - offset < data.size())) {
        return sftpStatus(SftpStatus::Failure);
    }
    const bool isFirst = !std::exchange(opened->isWritten, true);
    if (isFirst && script_.emptying == SftpEmptying::FirstWritten &&
        ::ftruncate(opened->file.get(), 0) != 0) {
        return outcome(-1);
    }
    const std::uint64_t space = script_.diskSpace.value_or(written_ + data.size());
    const std::size_t fitting =
        std::min<std::uint64_t>(data.size(), space - std::min(space, written_));
    const ssize_t count =
        ::pwrite(opened->file.get(), data.data(), fitting, static_cast<off_t>(offset));
    if (count < 0) {
        return outcome(-1);
    }
    written_ += static_cast<std::uint64_t>(count);
    return sftpStatus(static_cast<std::size_t>(count) == data.size() ? SftpStatus::Ok
                                                                     : SftpStatus::Failure);
}

SftpMessage SftpFileService::setAttributes(SftpReader& in) const
{
    const std::string path = absolute(in.text());
    WantedAttributes wanted(in);
    if (script_.keepsNineBits && wanted.permissions) {
        wanted.permissions = *wanted.permissions & 0777U;
    }
    return outcome(mayChangeTarget(path) ? applyAttributes(wanted, path) : -1);
}

SftpMessage SftpFileService::setAttributesOfOpened(SftpReader& in) const
{
    const Opened* const opened = find(in.text());
    if (opened == nullptr) {
        return sftpStatus(SftpStatus::Failure);
    }
    const bool allowed = mayChangeTarget(opened->path);
    return outcome(allowed ? applyAttributes(WantedAttributes(in), pathOfDescriptor(opened->file))
                           : -1);
}

SftpMessage SftpFileService::openDirectory(SftpReader& in)
{
    auto opened = std::make_unique<Opened>();
    opened->path = absolute(in.text());
    opened->isDirectory = true;
    opened->file = UniqueFd(::open(opened->path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!opened->file.isOpen()) {
        return outcome(-1);
    }
    opened->entries = listing(opened->path);
    return keep(std::move(opened));
}

SftpMessage SftpFileService::readDirectory(SftpReader& in)
{
    Opened* const opened = find(in.text());
    if (opened == nullptr || !opened->isDirectory) {
        return sftpStatus(SftpStatus::Failure);
    }
    const std::size_t known = opened->entries.size();
    const std::size_t end =
        std::min<std::uint64_t>(known, script_.listingErrorAfter.value_or(known));
    if (opened->told >= end) {
        return sftpStatus(end < known ? SftpStatus::Failure : SftpStatus::Eof);
    }
    const std::size_t count = std::min<std::uint64_t>(end - opened->told, script_.entriesPerReply);
    SftpWriter out;
    out.number(static_cast<std::uint32_t>(count));
    for (std::size_t i = 0; i < count; ++i) {
        out.raw(opened->entries[opened->told++]);
    }
    return {SftpPacket::Name, 0, out.bytes()};
}

SftpMessage SftpFileService::remove(SftpReader& in, int (*how)(const char*)) const
{
    const std::string path = absolute(in.text());
    const auto whatever = script_.removesWhateverIsThere ? ::remove : how;
    return outcome(mayChange(path) ? whatever(path.c_str()) : -1);
}

SftpMessage SftpFileService::rename(SftpReader& in, bool replaces) const
{
    const std::string from = absolute(in.text());
    const std::string to = absolute(in.text());
    if (!mayChange(from) || !mayChange(to)) {
        return outcome(-1);
    }

    struct stat info
    {};

    if (!replaces && ::lstat(to.c_str(), &info) == 0) {
        return sftpStatus(SftpStatus::Failure);
    }
    return outcome(::rename(from.c_str(), to.c_str()));
}

SftpMessage SftpFileService::makeDirectory(SftpReader& in) const
{
    const std::string path = absolute(in.text());
    const WantedAttributes wanted(in);
    const std::uint32_t mode = wanted.permissions.value_or(0777);
    const int result = mayChange(path) ? ::mkdir(path.c_str(), mode) : -1;
    if (result == 0) {
        setModeOfNew(path, mode, 0777);
    }
    return outcome(result);
}

SftpMessage SftpFileService::realPath(SftpReader& in) const
{
    std::error_code error;
    const fs::path resolved = fs::weakly_canonical(absolute(in.text()), error);
    errno = error.value();
    return error ? outcome(-1) : oneName(resolved.string());
}

SftpMessage SftpFileService::readLink(SftpReader& in) const
{
    const std::string path = absolute(in.text());
    const std::string stored = readWholeLink(path);
    if (stored.empty()) {
        return outcome(-1);
    }
    if (script_.linkTarget) {
        return oneName(*script_.linkTarget);
    }
    if (script_.linkAnswer == SftpLinkAnswer::Absolute) {
        return oneName((fs::path(path).parent_path() / stored).lexically_normal().string());
    }
    return oneName(stored);
}

SftpMessage SftpFileService::makeLink(SftpReader& in) const
{
    std::string target = in.text();
    std::string link = in.text();
    if (script_.symlinkOrder == SftpSymlinkOrder::LinkFirst) {
        target.swap(link);
    }
    const std::string path = absolute(link);
    return outcome(mayChange(path) ? ::symlink(target.c_str(), path.c_str()) : -1);
}

SftpMessage SftpFileService::extended(SftpReader& in) const
{
    const std::string name = in.text();
    if (!isAnnounced(script_, name)) {
        return sftpStatus(SftpStatus::OpUnsupported);
    }
    if (name == "statvfs@openssh.com") {
        return volume(absolute(in.text()));
    }
    if (name == "copy-data") {
        return copy(in);
    }
    if (name == "limits@openssh.com") {
        return limits();
    }
    return name == "posix-rename@openssh.com" ? rename(in, true)
                                              : sftpStatus(SftpStatus::OpUnsupported);
}

SftpMessage SftpFileService::copy(SftpReader& in) const
{
    const int source = descriptorOf(in.text());
    auto from = static_cast<off_t>(in.number64());
    std::uint64_t left = in.number64();
    const int target = descriptorOf(in.text());
    auto to = static_cast<off_t>(in.number64());
    std::string piece(262'144, '\0');
    while (left > 0) {
        const ssize_t count =
            ::pread(source, piece.data(), std::min<std::uint64_t>(left, piece.size()), from);
        if (count <= 0 ||
            ::pwrite(target, piece.data(), static_cast<std::size_t>(count), to) != count) {
            return sftpStatus(SftpStatus::Failure);
        }
        from += count;
        to += count;
        left -= static_cast<std::uint64_t>(count);
    }
    return sftpStatus(SftpStatus::Ok);
}

SftpMessage SftpFileService::attributes(int result, const struct stat& info) const
{
    return result == 0 ? SftpMessage{SftpPacket::Attrs, 0, attributeBlock(info)} : outcome(-1);
}

std::string SftpFileService::attributeBlock(const struct stat& info) const
{
    constexpr std::uint64_t kAll = SftpAttribute::kSize | SftpAttribute::kOwner |
                                   SftpAttribute::kPermissions | SftpAttribute::kTimes;
    const auto flags = static_cast<std::uint32_t>(kAll & ~script_.omittedAttributes);
    SftpWriter out;
    out.number(flags);
    if ((flags & SftpAttribute::kSize) != 0) {
        out.number64(static_cast<std::uint64_t>(info.st_size));
    }
    if ((flags & SftpAttribute::kOwner) != 0) {
        out.number(info.st_uid).number(info.st_gid);
    }
    if ((flags & SftpAttribute::kPermissions) != 0) {
        out.number(info.st_mode);
    }
    if ((flags & SftpAttribute::kTimes) != 0) {
        out.number(static_cast<std::uint32_t>(info.st_atim.tv_sec))
            .number(static_cast<std::uint32_t>(info.st_mtim.tv_sec));
    }
    return out.bytes();
}

std::string SftpFileService::nameEntry(const std::string& name, const struct stat& info) const
{
    const std::string longName = "----------    1 owner    group    " +
                                 std::to_string(info.st_size) + " Jan  1 00:00 " + name;
    return SftpWriter()
        .text(name)
        .text(script_.longName.value_or(longName))
        .raw(attributeBlock(info))
        .bytes();
}

std::vector<std::string> SftpFileService::listing(const std::string& path) const
{
    std::vector<std::string> entries;
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(path.c_str()), ::closedir);
    while (const dirent* const entry = directory ? ::readdir(directory.get()) : nullptr) {
        const std::string name = entry->d_name;
        const bool isDots = name == "." || name == "..";

        struct stat info
        {};

        if ((isDots ? script_.listsDots : script_.listsRealEntries) &&
            (::fstatat(::dirfd(directory.get()), name.c_str(), &info,
                       script_.followsLinks ? 0 : AT_SYMLINK_NOFOLLOW) == 0 ||
             script_.followsLinks)) {
            entries.push_back(nameEntry(name, info));
        }
    }
    for (const SftpFakeEntry& fake : script_.fakeEntries) {
        struct stat info
        {};

        info.st_mode = fake.permissions;
        info.st_size = static_cast<off_t>(fake.size);
        entries.push_back(nameEntry(fake.name, info));
    }
    return entries;
}

std::string SftpFileService::absolute(const std::string& path) const
{
    if (path.find('\0') != std::string::npos) {
        throw MalformedPacket("a path with a NUL byte");
    }
    const std::string place = path.empty() ? root_.string() : (root_ / path).string();
    return script_.foldsCase ? asSpelled(place) : place;
}

bool SftpFileService::isInside(const fs::path& place) const
{
    const std::string text = place.lexically_normal().string() + "/";
    const bool inside = text.rfind(root_.string() + "/", 0) == 0;
    errno = inside ? 0 : EACCES;
    return inside;
}

bool SftpFileService::mayChange(const std::string& path) const
{
    std::error_code error;
    const fs::path subject(path);
    const fs::path parent = fs::weakly_canonical(subject.parent_path(), error);
    errno = error.value();
    return !error && isInside(parent / subject.filename());
}

bool SftpFileService::mayChangeTarget(const std::string& path) const
{
    std::error_code error;
    const fs::path resolved = fs::weakly_canonical(path, error);
    errno = error.value();
    return !error && isInside(resolved);
}

SftpFileService::Opened* SftpFileService::find(const std::string& handle) const
{
    const auto found = opened_.find(handle);
    return found != opened_.end() ? found->second.get() : nullptr;
}

int SftpFileService::descriptorOf(const std::string& handle) const
{
    const Opened* const opened = find(handle);
    return opened != nullptr ? opened->file.get() : -1;
}

SftpMessage SftpFileService::keep(std::unique_ptr<Opened> opened)
{
    const std::string handle = "handle " + std::to_string(++handleCount_);
    opened_[handle] = std::move(opened);
    return {SftpPacket::Handle, 0, SftpWriter().text(handle).bytes()};
}

} // namespace TarnisTest
