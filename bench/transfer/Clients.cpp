#include "transfer/Clients.h"

#include "support/ChildProcess.h"
#include "support/OpenSshClient.h"
#include "support/Probe.h"
#include "support/Require.h"
#include "transfer/Workload.h"

#include <sstream>

namespace TarnisBench {

namespace {

using Kind = Errand::Kind;
using Arguments = std::vector<std::string>;

Arguments concatenated(const std::vector<Arguments>& parts)
{
    Arguments whole;
    for (const Arguments& part : parts) {
        whole.insert(whole.end(), part.begin(), part.end());
    }
    return whole;
}

std::string joined(const Arguments& words)
{
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : " ") + word;
    }
    return text;
}

bool isTree(const Errand& errand)
{
    return errand.kind == Kind::GetTree || errand.kind == Kind::PutTree;
}

/// What it is about: from where and to where, in this order, where something is moved.
/// \param server what a program puts before paths of the server.
Arguments placesOf(const Errand& errand, const std::string& server)
{
    switch (errand.kind) {
    case Kind::GetFile:
    case Kind::GetTree:
    case Kind::ReadMounted:
        return {server + errand.remote, errand.local};
    case Kind::PutFile:
    case Kind::PutTree:
    case Kind::WriteMounted:
        return {errand.local, server + errand.remote};
    case Kind::CopyThere:
        return {server + errand.remote, server + errand.remoteTarget};
    case Kind::List:
    case Kind::Remove:
        break;
    }
    return {server + errand.remote};
}

/// The option that lets most of them take directories.
Arguments recursion(const Errand& errand)
{
    return isTree(errand) || errand.kind == Kind::Remove ? Arguments{"-r"} : Arguments{};
}

std::string findInPath(const std::string& program)
{
    return TarnisTest::findProgram(
        {"/usr/local/bin/" + program, "/usr/bin/" + program, "/bin/" + program});
}

std::string missingProgram(const std::string& program)
{
    return findInPath(program).empty() ? "not installed" : "";
}

std::string missingCurl()
{
    const std::string curl = findInPath("curl");
    if (curl.empty()) {
        return "not installed";
    }
    const std::string features = " " + runProbe({curl, "--version"}).output;
    return features.find(" sftp ") == std::string::npos ? "built without SFTP" : "";
}

std::string tarnisVerb(Kind kind)
{
    switch (kind) {
    case Kind::GetFile:
    case Kind::GetTree:
        return "get";
    case Kind::PutFile:
    case Kind::PutTree:
        return "put";
    case Kind::List:
        return "ls";
    case Kind::Remove:
        return "rm";
    case Kind::CopyThere:
    case Kind::ReadMounted:
    case Kind::WriteMounted:
        break;
    }
    return "cp";
}

Arguments tarnisCommand(const BenchServer& /*server*/, const Login& login, const Errand& errand)
{
    const std::string server =
        login.user + "@" + login.host + ":" + std::to_string(login.port) + ":";
    const Arguments start{TARNIS_BENCH_PROGRAM, tarnisVerb(errand.kind),
                          "--known-hosts",      login.knownHostsFile,
                          "--host-key-policy",  "known",
                          "--identity",         login.keyFile};
    return concatenated({start, recursion(errand), placesOf(errand, server)});
}

/// Its own `cp` asks the server to copy, which is no way that leads through this machine.
std::string sftpBatch(const Errand& errand)
{
    const std::string moving = joined(concatenated({recursion(errand), placesOf(errand, "")}));
    switch (errand.kind) {
    case Kind::GetFile:
    case Kind::GetTree:
        return "get " + moving + "\n";
    case Kind::PutFile:
    case Kind::PutTree:
        return "put " + moving + "\n";
    case Kind::List:
        return "cd " + errand.remote + "\nls -1\n";
    case Kind::CopyThere:
        return "get " + errand.remote + " " + errand.local + "\nput " + errand.local + " " +
               errand.remoteTarget + "\n";
    case Kind::Remove:
    case Kind::ReadMounted:
    case Kind::WriteMounted:
        break;
    }
    return {};
}

Arguments sftpCommand(const BenchServer& server, const Login& login, const Errand& errand)
{
    const std::string batch = sftpBatch(errand);
    if (batch.empty()) {
        return {};
    }
    return concatenated({{"sftp", "-q", "-b", server.directory().write("sftp-batch", batch)},
                         openSshOptions(login),
                         {"-P", std::to_string(login.port), login.user + "@" + login.host}});
}

Arguments scpCommand(const BenchServer& /*server*/, const Login& login, const Errand& errand)
{
    if (errand.kind == Kind::List || errand.kind == Kind::Remove) {
        return {};
    }
    return concatenated({{"scp", "-q", "-P", std::to_string(login.port)},
                         openSshOptions(login),
                         recursion(errand),
                         placesOf(errand, login.user + "@" + login.host + ":")});
}

/// All files of a tree, in curl's words.
std::string curlTreePattern(const Errand& errand)
{
    const std::string first = treeFileName(0).substr(1);
    const std::string last = treeFileName(errand.files - 1).substr(1);
    return treeFileName(0).substr(0, 1) + "[" + first + "-" + last + "]";
}

/// It knows no recursion, but patterns of the names in one directory.
Arguments curlErrand(const std::string& url, const Errand& errand)
{
    if (isTree(errand) && errand.directories > 0) {
        return {};
    }
    switch (errand.kind) {
    case Kind::GetFile:
        return {url, "-o", errand.local};
    case Kind::PutFile:
        return {"-T", errand.local, url};
    case Kind::GetTree:
        return {"--create-dirs", url + "/" + curlTreePattern(errand), "-o",
                errand.local + "/" + treeFileName(0).substr(0, 1) + "#1"};
    case Kind::PutTree:
        return {"--ftp-create-dirs", "-T", errand.local + "/" + curlTreePattern(errand), url + "/"};
    case Kind::List:
        return {"-l", url + "/"};
    case Kind::Remove:
    case Kind::CopyThere:
    case Kind::ReadMounted:
    case Kind::WriteMounted:
        break;
    }
    return {};
}

Arguments curlCommand(const BenchServer& /*server*/, const Login& login, const Errand& errand)
{
    const std::string url = "sftp://" + login.user + "@" + login.host + ":" +
                            std::to_string(login.port) + errand.remote;
    const Arguments rest = curlErrand(url, errand);
    if (rest.empty()) {
        return {};
    }
    return concatenated({{"curl", "-q", "-sS", "--fail-early", "--key", login.keyFile, "--pubkey",
                          login.keyFile + ".pub"},
                         rest});
}

std::string lftpErrand(const Errand& errand)
{
    switch (errand.kind) {
    case Kind::GetFile:
        return "get " + errand.remote + " -o " + errand.local;
    case Kind::PutFile:
        return "put " + errand.local + " -o " + errand.remote;
    case Kind::GetTree:
        return "mirror " + errand.remote + " " + errand.local;
    case Kind::PutTree:
        return "mirror -R " + errand.local + " " + errand.remote;
    case Kind::List:
        return "cd " + errand.remote + "; cls -1";
    case Kind::Remove:
        return "rm -r " + errand.remote;
    case Kind::CopyThere:
    case Kind::ReadMounted:
    case Kind::WriteMounted:
        break;
    }
    return {};
}

Arguments lftpCommand(const BenchServer& /*server*/, const Login& login, const Errand& errand)
{
    const std::string work = lftpErrand(errand);
    if (work.empty()) {
        return {};
    }
    const std::string connect = joined(concatenated({{"ssh", "-a", "-x"}, openSshOptions(login)}));
    return {"lftp", "--norc", "-c",
            "set cmd:fail-exit true; set net:max-retries 1; set sftp:connect-program \"" + connect +
                "\"; open -u " + login.user + ", -p " + std::to_string(login.port) + " sftp://" +
                login.host + "; " + work};
}

std::string rcloneVerb(const Errand& errand)
{
    if (errand.kind == Kind::List) {
        return "lsf";
    }
    return errand.kind == Kind::Remove ? "purge" : isTree(errand) ? "copy" : "copyto";
}

Arguments rcloneCommand(const BenchServer& server, const Login& login, const Errand& errand)
{
    // It has no sums to compare, as nobody else has any.
    std::ostringstream configuration;
    configuration << "[peer]\ntype = sftp\nhost = " << login.host << "\nport = " << login.port
                  << "\nuser = " << login.user << "\nkey_file = " << login.keyFile
                  << "\nknown_hosts_file = " << login.knownHostsFile
                  << "\nshell_type = unix\ndisable_hashcheck = true\n";
    const std::string file = server.directory().write("rclone.conf", configuration.str());
    return concatenated({{"rclone", "--config", file, "--retries", "1", rcloneVerb(errand)},
                         placesOf(errand, "peer:")});
}

/// Mounts the directory that holds the remote file, copies block after block, and unmounts: what
/// was written is known to be there then.
/// \param mounting with the remote directory and the mount point to come behind it, as words of a
///                 shell.
Arguments throughMount(const BenchServer& server, const std::string& mounting, const Errand& errand,
                       const std::string& remotePrefix)
{
    const auto slash = errand.remote.rfind('/');
    const std::string directory = errand.remote.substr(0, slash);
    const std::string mountPoint = server.directory().file("mounted");
    const std::string file = mountPoint + errand.remote.substr(slash);
    const bool isRead = errand.kind == Kind::ReadMounted;
    const std::string& from = isRead ? file : errand.local;
    const std::string& to = isRead ? errand.local : file;
    return {"sh", "-c",
            "mkdir -p " + mountPoint + " && " + mounting + " " + remotePrefix + directory + " " +
                mountPoint + " || exit 1\n" + "dd bs=128k status=none if=" + from + " of=" + to +
                "\nended=$?\nfusermount3 -u " + mountPoint + " && exit $ended"};
}

Arguments tarnisMount(const BenchServer& server, const Login& login, const Errand& errand)
{
    const Arguments words = concatenated({{TARNIS_BENCH_MOUNT}, toArguments(login)});
    return throughMount(server, joined(words), errand, "");
}

Arguments sshfsMount(const BenchServer& server, const Login& login, const Errand& errand)
{
    const std::string ssh = joined(concatenated({{"ssh", "-a", "-x"}, openSshOptions(login)}));
    return throughMount(server,
                        "sshfs -p " + std::to_string(login.port) + " -o ssh_command='" + ssh + "'",
                        errand, login.user + "@" + login.host + ":");
}

bool isMounted(Kind kind)
{
    return kind == Kind::ReadMounted || kind == Kind::WriteMounted;
}

} // namespace

std::vector<Client> clientsFor(Kind kind)
{
    if (isMounted(kind)) {
        return {
            {"tarnis", "", tarnisMount},
            {"sshfs", missingProgram("sshfs"), sshfsMount},
        };
    }
    return {
        {"tarnis", "", tarnisCommand},
        {"sftp", missingProgram("sftp"), sftpCommand},
        {"scp", missingProgram("scp"), scpCommand},
        {"curl", missingCurl(), curlCommand},
        {"lftp", missingProgram("lftp"), lftpCommand},
        {"rclone", missingProgram("rclone"), rcloneCommand},
    };
}

} // namespace TarnisBench
