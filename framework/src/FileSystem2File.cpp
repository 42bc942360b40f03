#include "GoneFileSystem.h"

#include <FileSystem/FileSystem2.h>
#include <FileSystem/FileSystem2File.h>

namespace FileSystem {

FileSystem2File::FileSystem2File() = default;

FileSystem2File::~FileSystem2File() = default;

const FileSystem2& FileSystem2File::fileSystem() const
{
    return isSystemAlive() ? do_fileSystem() : goneFileSystem();
}

std::string FileSystem2File::do_parentDirectoryId()
{
    return fileSystem().pathParentId(fileId());
}

std::string FileSystem2File::do_name()
{
    return fileSystem().pathFileName(fileId());
}

const StorageSystem& FileSystem2File::do_storageSystem()
{
    return fileSystem();
}

} // namespace FileSystem
