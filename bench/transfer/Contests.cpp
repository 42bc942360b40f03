#include "transfer/Contests.h"

#include <algorithm>

namespace TarnisBench {

namespace {

using Kind = Errand::Kind;
using std::chrono::milliseconds;

constexpr milliseconds here{0};
constexpr milliseconds near{20};
constexpr milliseconds far{100};

constexpr const char* anyPeer = "";
constexpr const char* aesGcm = "aes256-gcm@openssh.com";
constexpr const char* chaCha20 = "chacha20-poly1305@openssh.com";

bool isTree(const Material& material)
{
    return material.directories > 0 || material.files > 1;
}

std::string amountOf(Kind kind, const Material& material)
{
    constexpr std::uint64_t kib = 1024;
    constexpr std::uint64_t mib = 1024 * kib;
    std::string bytes = material.bytes < mib ? std::to_string(material.bytes / kib) + " KiB"
                                             : std::to_string(material.bytes / mib) + " MiB";
    if (!isTree(material)) {
        return bytes;
    }
    const std::string files =
        std::to_string(material.files) + (kind == Kind::List ? " names" : " files");
    return material.bytes == 0 ? files : files + ", " + bytes;
}

std::string deedOf(Kind kind)
{
    switch (kind) {
    case Kind::GetFile:
    case Kind::GetTree:
        return " down";
    case Kind::ReadMounted:
        return " read through a mount";
    case Kind::PutFile:
    case Kind::PutTree:
        return " up";
    case Kind::WriteMounted:
        return " written through a mount";
    case Kind::List:
        return " listed";
    case Kind::Remove:
        return " removed";
    case Kind::CopyThere:
        break;
    }
    return " from remote to remote";
}

std::string placeOf(const Contest& contest)
{
    return contest.roundTrip == here ? "loopback"
                                     : std::to_string(contest.roundTrip.count()) + " ms";
}

} // namespace

const std::vector<Contest>& allContests()
{
    static const std::vector<Contest> contests{
        {"down", Kind::GetFile, Load::LargeFile, here, 1.5},
        {"up", Kind::PutFile, Load::LargeFile, here, 1.3},
        {"copy", Kind::CopyThere, Load::LargeFile, here, 1, "sftp"},
        {"small-down", Kind::GetTree, Load::SmallFiles, here, 3},
        {"small-up", Kind::PutTree, Load::SmallFiles, here, 3},
        {"list", Kind::List, Load::Names, here, 1.3},
        {"gcm-down", Kind::GetFile, Load::LargeFile, here, 1.25, anyPeer, aesGcm},
        {"gcm-up", Kind::PutFile, Load::LargeFile, here, 1.1, anyPeer, aesGcm},
        {"chacha-down", Kind::GetFile, Load::LargeFile, here, 1.25, anyPeer, chaCha20},
        {"chacha-up", Kind::PutFile, Load::LargeFile, here, 1.1, anyPeer, chaCha20},
        {"down-20", Kind::GetFile, Load::LargeFile, near, 2.5},
        {"up-20", Kind::PutFile, Load::MiddleFile, near, 1.7},
        {"small-down-20", Kind::GetTree, Load::SmallFiles, near, 15},
        {"small-up-20", Kind::PutTree, Load::SmallFiles, near, 15},
        {"mixed-down-20", Kind::GetTree, Load::MixedTree, near, 4},
        {"mixed-up-20", Kind::PutTree, Load::MixedTree, near, 4},
        {"remove-20", Kind::Remove, Load::DeepTree, near, 15},
        {"one-down-20", Kind::GetFile, Load::SmallFile, near, 1, "sftp"},
        {"one-up-20", Kind::PutFile, Load::SmallFile, near, 1, "sftp"},
        {"mount-read-20", Kind::ReadMounted, Load::MountedFile, near, 1.5, "sshfs"},
        {"mount-write-20", Kind::WriteMounted, Load::MountedFile, near, 1.5, "sshfs"},
        {"down-100", Kind::GetFile, Load::LargeFile, far, 3.5},
        {"up-100", Kind::PutFile, Load::MiddleFile, far, 3},
        {"small-down-100", Kind::GetTree, Load::SmallFiles, far, 15},
        {"small-up-100", Kind::PutTree, Load::SmallFiles, far, 15},
        {"list-100", Kind::List, Load::Names, far, 2.5},
    };
    return contests;
}

bool isContest(const std::string& name)
{
    const auto& all = allContests();
    return std::any_of(all.begin(), all.end(),
                       [&name](const Contest& contest) { return contest.name == name; });
}

std::string titleOf(const Contest& contest, const Material& material)
{
    const std::string cipher(contest.cipher);
    return std::string(contest.name) + ": " + amountOf(contest.kind, material) +
           deedOf(contest.kind) + ", " + placeOf(contest) +
           (cipher.empty() ? "" : ", " + cipher.substr(0, cipher.find('@')));
}

} // namespace TarnisBench
