#include "transfer/Clients.h"

#include "support/ChildProcess.h"
#include "support/OpenSshClient.h"
#include "support/Probe.h"
#include "support/Require.h"

#include <iomanip>
#include <sstream>

namespace TarnisBench {

namespace {

using Kind = Errand::Kind;
using Arguments = std::vector<std::string>;

constexpr int treeNameDigits = 6;

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

bool isGet(const Errand& errand)
{
    return errand.kind == Kind::GetFile || errand.kind == Kind::GetTree;
}

/// From where and to where, in this order.
Arguments endsOf(const Errand& errand, const std::string& remote)
{
    return isGet(errand) ? Arguments{remote, errand.local} : Arguments{errand.local, remote};
}

/// The option that lets most of them take directories.
Arguments recursion(const Errand& errand)
{
    return isTree(errand) ? Arguments{"-r"} : Arguments{};
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

Arguments tarnisCommand(const BenchServer& /*server*/, const Login& login, const Errand& errand)
{
    const std::string remote =
        login.user + "@" + login.host + ":" + std::to_string(login.port) + ":" + errand.remote;
    const std::string command = errand.kind == Kind::List ? "ls" : isGet(errand) ? "get" : "put";
    return concatenated({{TARNIS_BENCH_PROGRAM, command, "--known-hosts", login.knownHostsFile,
                          "--host-key-policy", "known", "--identity", login.keyFile},
                         recursion(errand),
                         errand.kind == Kind::List ? Arguments{remote} : endsOf(errand, remote)});
}

Arguments libraryCommand(const BenchServer& /*server*/, const Login& login, const Errand& errand)
{
    const std::string method = errand.kind == Kind::List ? "list" : isGet(errand) ? "get" : "put";
    return probeCommandLine(TARNIS_BENCH_PROBE, "files", login,
                            {method, errand.remote, errand.local});
}

Arguments sftpCommand(const BenchServer& server, const Login& login, const Errand& errand)
{
    std::string batch;
    if (errand.kind == Kind::List) {
        batch = "cd " + errand.remote + "\nls -1\n";
    } else {
        batch = joined(concatenated({{isGet(errand) ? "get" : "put"},
                                     recursion(errand),
                                     endsOf(errand, errand.remote)})) +
                "\n";
    }
    return concatenated({{"sftp", "-q", "-b", server.directory().write("sftp-batch", batch)},
                         openSshOptions(login),
                         {"-P", std::to_string(login.port), login.user + "@" + login.host}});
}

Arguments scpCommand(const BenchServer& /*server*/, const Login& login, const Errand& errand)
{
    if (errand.kind == Kind::List) {
        return {};
    }
    return concatenated({{"scp", "-q", "-P", std::to_string(login.port)},
                         openSshOptions(login),
                         recursion(errand),
                         endsOf(errand, login.user + "@" + login.host + ":" + errand.remote)});
}

/// All files of a tree, in curl's words.
std::string curlTreePattern(const Errand& errand)
{
    const std::string first = treeFileName(0).substr(1);
    const std::string last = treeFileName(errand.count - 1).substr(1);
    return treeFileName(0).substr(0, 1) + "[" + first + "-" + last + "]";
}

Arguments curlErrand(const std::string& url, const Errand& errand)
{
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
        break;
    }
    return {"-l", url + "/"};
}

Arguments curlCommand(const BenchServer& /*server*/, const Login& login, const Errand& errand)
{
    const std::string url = "sftp://" + login.user + "@" + login.host + ":" +
                            std::to_string(login.port) + errand.remote;
    return concatenated({{"curl", "-q", "-sS", "--fail-early", "--key", login.keyFile, "--pubkey",
                          login.keyFile + ".pub"},
                         curlErrand(url, errand)});
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
        break;
    }
    return "cd " + errand.remote + "; cls -1";
}

Arguments lftpCommand(const BenchServer& /*server*/, const Login& login, const Errand& errand)
{
    const std::string connect = joined(concatenated({{"ssh", "-a", "-x"}, openSshOptions(login)}));
    return {"lftp", "--norc", "-c",
            "set cmd:fail-exit true; set net:max-retries 1; set sftp:connect-program \"" + connect +
                "\"; open -u " + login.user + ", -p " + std::to_string(login.port) + " sftp://" +
                login.host + "; " + lftpErrand(errand)};
}

Arguments rcloneErrand(const Errand& errand)
{
    const std::string remote = "peer:" + errand.remote;
    if (errand.kind == Kind::List) {
        return {"lsf", remote};
    }
    return concatenated({{isTree(errand) ? "copy" : "copyto"}, endsOf(errand, remote)});
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
    return concatenated({{"rclone", "--config", file, "--retries", "1"}, rcloneErrand(errand)});
}

} // namespace

std::string treeFileName(std::size_t number)
{
    std::ostringstream name;
    name << 'f' << std::setw(treeNameDigits) << std::setfill('0') << number;
    return name.str();
}

std::vector<Client> allClients()
{
    return {
        {"tarnis", "", tarnisCommand},
        {"the library", "", libraryCommand},
        {"sftp", missingProgram("sftp"), sftpCommand},
        {"scp", missingProgram("scp"), scpCommand},
        {"curl", missingCurl(), curlCommand},
        {"lftp", missingProgram("lftp"), lftpCommand},
        {"rclone", missingProgram("rclone"), rcloneCommand},
    };
}

} // namespace TarnisBench
