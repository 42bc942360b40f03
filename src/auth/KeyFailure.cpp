#include "auth/KeyFailure.h"

#include "auth/PrivateKeyImport.h"
#include "handles/FileProbe.h"

#include <FileSystem/FailureScope.h>
#include <Tarnis/SSHFailureCode.h>

#include <libssh/libssh.h>

#include <cerrno>
#include <cstddef>
#include <system_error>

namespace Tarnis {

namespace {

/// libssh's import of a private key from a text or a file.
using Import = int (*)(const char* source, const char* passPhrase, ssh_auth_callback prompt,
                       void* promptData, ssh_key* key);

int notePrompt(const char* /*prompt*/, char* /*buffer*/, std::size_t /*length*/, int /*echo*/,
               int /*verify*/, void* wasAsked)
{
    *static_cast<bool*>(wasAsked) = true;
    return -1;
}

/// Whether there is a key that a pass phrase opens: libssh asks for it when it is given none.
bool wantsPassPhrase(Import import, const std::string& source)
{
    bool wasAsked = false;
    ssh_key key = nullptr;
    static_cast<void>(import(source.c_str(), nullptr, notePrompt, &wasAsked, &key));
    const PrivateKey owned(key);
    return wasAsked;
}

SSHFailureCode codeOf(Import import, const std::string& source)
{
    return !source.empty() && wantsPassPhrase(import, source) ? SSHFailureCode::WrongPassPhrase
                                                              : SSHFailureCode::NotAKey;
}

} // namespace

void noteKeyTextFailure(const std::string& text)
{
    FileSystem::fail(codeOf(ssh_pki_import_privkey_base64, text));
}

void noteKeyFileFailure(const std::string& path)
{
    const int error = errorOfReading(path);
    if (error == 0) {
        FileSystem::fail(codeOf(ssh_pki_import_privkey_file, path), {}, path);
        return;
    }
    const bool isMissing = error == ENOENT || error == ENOTDIR;
    FileSystem::fail(isMissing ? SSHFailureCode::KeyFileMissing : SSHFailureCode::KeyFileUnreadable,
                     FileSystem::FailureSource::System, error,
                     std::generic_category().message(error), path);
}

} // namespace Tarnis
