#include "handles/SSHHandleSFTPSessionFile.h"

namespace Tarnis {

SSHHandleSFTPSessionFile::SSHHandleSFTPSessionFile(SSHHandleSFTPSession* sftp, sftp_file file)
    : SSHHandleObjectWrapper(sftp, file)
{}

void SSHHandleSFTPSessionFile::abandon() noexcept
{
    const sftp_file file = getResource();
    if (file != nullptr) {
        ssh_string_free(file->handle);
        file->handle = nullptr;
    }
}

} // namespace Tarnis
