#include "support/WrappedUsers.h"

#include "support/SystemError.h"

#include <filesystem>
#include <sstream>
#include <stdexcept>

#include <crypt.h>
#include <pwd.h>
#include <unistd.h>

namespace TarnisTest {

namespace fs = std::filesystem;

namespace {

// Where distributions put the wrappers: the multi-architecture directory first.
const std::vector<std::string>& libraryDirectories()
{
    static const std::vector<std::string> directories = [] {
        std::vector<std::string> found;
        for (const char* const root : {"/usr/lib", "/usr/local/lib", "/usr/lib64"}) {
            found.emplace_back(root);
            std::error_code ignored;
            for (const auto& entry : fs::directory_iterator(root, ignored)) {
                if (entry.path().filename().string().find("-linux-gnu") != std::string::npos) {
                    found.push_back(entry.path().string());
                }
            }
        }
        return found;
    }();
    return directories;
}

std::string findLibrary(const std::string& name)
{
    for (const std::string& directory : libraryDirectories()) {
        const fs::path candidate = fs::path(directory) / name;
        if (fs::exists(candidate)) {
            return candidate.string();
        }
    }
    return {};
}

std::string nssWrapper()
{
    return findLibrary("libnss_wrapper.so");
}

std::string pamWrapper()
{
    return findLibrary("libpam_wrapper.so");
}

std::string pamMatrix()
{
    return findLibrary("pam_wrapper/pam_matrix.so");
}

constexpr const char* kService = "sshd";

std::string nobodyIds()
{
    const passwd* const nobody = ::getpwnam("nobody");
    if (nobody == nullptr) {
        throw std::runtime_error("there is no user nobody");
    }
    return std::to_string(nobody->pw_uid) + ":" + std::to_string(nobody->pw_gid);
}

// Servers without PAM compare this kind of hash with the one in the shadow file.
std::string cryptPassword(const std::string& password)
{
    crypt_data workspace{};
    const char* const hash = ::crypt_r(password.c_str(), "$5$tarnis$", &workspace);
    if (hash == nullptr) {
        throw std::runtime_error("crypt has no SHA-256");
    }
    return hash;
}

// libpam_wrapper copies the service files to /tmp/pam.X, X being one letter or digit, and leaves
// the copy behind when its process is killed. Ours are known by the file that they name.
void removeCopiesThatName(const std::string& text)
{
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator("/tmp", ignored)) {
        const std::string name = entry.path().filename().string();
        if (name.rfind("pam.", 0) == 0 &&
            readFile(entry.path() / kService).find(text) != std::string::npos) {
            fs::remove_all(entry.path(), ignored);
        }
    }
}

} // namespace

Availability WrappedUsers::availability()
{
    if (::geteuid() != 0) {
        return Availability::no("a server for several users needs root");
    }
    if (nssWrapper().empty()) {
        return Availability::no("libnss_wrapper is not installed");
    }
    if (pamWrapper().empty() || pamMatrix().empty()) {
        return Availability::no("libpam_wrapper is not installed");
    }
    return Availability::yes();
}

WrappedUsers::WrappedUsers()
    : clientKey_(generateKey(directory_, "client"))
{
    directory_.allowEveryone();
    writeAccounts();
    writePamService();
    makeHome();
}

WrappedUsers::~WrappedUsers()
{
    removeCopiesThatName(directory_.path().string());
}

void WrappedUsers::writeAccounts() const
{
    const std::string ids = nobodyIds();
    std::ostringstream accounts;
    accounts << "root:x:0:0:root:/nonexistent:/bin/sh\n"
             << "nobody:x:" << ids << ":nobody:/nonexistent:/usr/sbin/nologin\n"
             << "sshd:x:" << ids << ":sshd:/run/sshd:/usr/sbin/nologin\n";
    std::ostringstream shadow;
    shadow << "root:*:19000:0:99999:7:::\n";
    for (const std::string& name : {user(), userWithoutPassword()}) {
        accounts << name << ":x:" << ids << "::" << homeDirectory() << ":/bin/sh\n";
    }
    shadow << user() << ":" << cryptPassword(password()) << ":19000:0:99999:7:::\n"
           << userWithoutPassword() << "::19000:0:99999:7:::\n";
    directory_.write("passwd", accounts.str(), 0644);
    directory_.write("shadow", shadow.str(), 0644);
    directory_.write("group", "root:x:0:\nnogroup:x:" + ids.substr(ids.find(':') + 1) + ":\n",
                     0644);
}

void WrappedUsers::writePamService() const
{
    const std::string passwords = directory_.file("passwords");
    directory_.write("passwords", user() + ":" + password() + ":" + kService + "\n" +
                                      userWithoutPassword() + "::" + kService + "\n");
    directory_.makeDirectory("pam");
    std::string service;
    for (const char* const type : {"auth", "account", "password", "session"}) {
        service += std::string(type) + " required " + pamMatrix() + " passdb=" + passwords + "\n";
    }
    directory_.write(std::string("pam/") + kService, service);
}

void WrappedUsers::makeHome() const
{
    directory_.makeDirectory("home/.ssh");
    directory_.write("home/.ssh/authorized_keys", clientKey_.publicLine + "\n");
    const passwd* const nobody = ::getpwnam("nobody");
    for (const char* const name : {"home", "home/.ssh", "home/.ssh/authorized_keys"}) {
        if (::chown(directory_.file(name).c_str(), nobody->pw_uid, nobody->pw_gid) != 0) {
            throwErrno("chown");
        }
    }
}

std::string WrappedUsers::authorizedKeysFile() const
{
    return homeDirectory() + "/.ssh/authorized_keys";
}

std::string WrappedUsers::homeDirectory() const
{
    return directory_.file("home");
}

std::vector<std::string> WrappedUsers::environment() const
{
    return {
        "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
        "LD_PRELOAD=" + nssWrapper() + " " + pamWrapper(),
        "NSS_WRAPPER_PASSWD=" + directory_.file("passwd"),
        "NSS_WRAPPER_GROUP=" + directory_.file("group"),
        "NSS_WRAPPER_SHADOW=" + directory_.file("shadow"),
        "PAM_WRAPPER=1",
        "PAM_WRAPPER_SERVICE_DIR=" + directory_.file("pam"),
    };
}

} // namespace TarnisTest
