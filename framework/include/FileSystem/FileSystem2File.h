#pragma once

#include <FileSystem/Export.h>
#include <FileSystem/StorageSystemFile.h>

#include <string>

namespace FileSystem {

class FileSystem2;

/// An open file of a FileSystem2. A file class implements the operations that are left abstract;
/// the others are built on them and on the file system.
class FILESYSTEM_EXPORT FileSystem2File : public StorageSystemFile
{
public:
    ~FileSystem2File() override;

    /// The file system that opened the file; as storageSystem() when that is gone.
    const FileSystem2& fileSystem() const;

protected:
    FileSystem2File();

    std::string do_parentDirectoryId() override;
    std::string do_name() override;
    const StorageSystem& do_storageSystem() override;
    virtual const FileSystem2& do_fileSystem() const = 0;
};

} // namespace FileSystem
