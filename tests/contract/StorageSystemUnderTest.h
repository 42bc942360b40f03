#pragma once

#include "contract/Capability.h"
#include "support/Availability.h"

#include <FileSystem/FileSystem2.h>

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace TarnisTest {

/// A storage system, ready to be put to the test: made for one test, gone with everything that the
/// test left behind when it ends.
class StorageSystemUnderTest
{
public:
    StorageSystemUnderTest() = default;
    StorageSystemUnderTest(const StorageSystemUnderTest&) = delete;
    StorageSystemUnderTest& operator=(const StorageSystemUnderTest&) = delete;
    virtual ~StorageSystemUnderTest() = default;

    virtual const FileSystem::FileSystem2& fileSystem() const = 0;

    /// Another one that reaches the same tree, for copies between two: its own session, where
    /// there are sessions.
    virtual const FileSystem::FileSystem2& otherFileSystem() const = 0;

    /// The path of an empty directory of this test's own, absolute, without a slash at its end.
    virtual std::string directory() const = 0;

    virtual Capabilities capabilities() const { return {}; }

    /// Where a path of the storage system stands on this machine, which runs the servers, too: as a
    /// second opinion. For one that is somewhere else there is none, and it must override what
    /// follows.
    virtual std::string localPath(const std::string& path) const { return path; }

    // What the interface cannot make, or not on every system. False: it is not made.

    virtual bool makePipe(const std::string& path) const;
    virtual bool makeSocket(const std::string& path) const;

    /// One that reads as empty and swallows what is written, or a disk that is not there. Takes the
    /// superuser, as a rule.
    virtual bool makeCharacterDevice(const std::string& path) const;
    virtual bool makeBlockDevice(const std::string& path) const;

    virtual bool makeHardLink(const std::string& path, const std::string& newPath) const;
    virtual bool makeSymbolicLink(const std::string& target, const std::string& path) const;
};

/// A kind of storage system that the contract is tested on.
struct Backend
{
    std::string name; ///< Letters and digits: it becomes part of the names of the tests.
    std::function<Availability()> availability;
    std::function<std::unique_ptr<StorageSystemUnderTest>()> make;
};

inline std::ostream& operator<<(std::ostream& stream, const Backend& backend)
{
    return stream << backend.name;
}

/// Adds a backend for as long as the program runs; as the initialiser of a static object in the
/// backend's source file:
///
///     const bool registered = registerBackend({"Local", Availability::yes, makeLocal});
bool registerBackend(Backend backend);

/// All that are registered. Complete once main() runs.
const std::vector<Backend>& backends();

} // namespace TarnisTest
