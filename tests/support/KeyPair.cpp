#include "support/KeyPair.h"

#include "support/ChildProcess.h"

#include <sstream>
#include <stdexcept>

namespace TarnisTest {

namespace {

std::string formatName(KeyFormat format)
{
    switch (format) {
    case KeyFormat::OpenSsh:
        return "RFC4716"; // for private keys ssh-keygen means its own form by this
    case KeyFormat::Pem:
        return "PEM";
    case KeyFormat::Pkcs8:
        return "PKCS8";
    }
    throw std::invalid_argument("no such key format");
}

// One field of a line of words.
std::string word(const std::string& line, int index)
{
    std::istringstream words(line);
    std::string found;
    for (int i = 0; i <= index; ++i) {
        words >> found;
    }
    return found;
}

Command keygen(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), "ssh-keygen");
    Command command;
    command.arguments = std::move(arguments);
    return command;
}

} // namespace

std::string keyTypeName(KeyType type)
{
    switch (type) {
    case KeyType::Ed25519:
        return "ed25519";
    case KeyType::Ecdsa:
        return "ecdsa";
    case KeyType::Rsa:
        return "rsa";
    }
    throw std::invalid_argument("no such key type");
}

KeyPair generateKey(const TemporaryDirectory& directory, const std::string& name, KeyType type,
                    KeyFormat format, const std::string& passPhrase)
{
    if (type == KeyType::Ed25519 && format != KeyFormat::OpenSsh) {
        throw std::invalid_argument("an Ed25519 key has no other form than OpenSSH's");
    }
    KeyPair key;
    key.privatePath = directory.file(name);
    key.publicPath = key.privatePath + ".pub";
    std::vector<std::string> arguments{"-q",
                                       "-f",
                                       key.privatePath,
                                       "-N",
                                       passPhrase,
                                       "-t",
                                       keyTypeName(type),
                                       "-m",
                                       formatName(format)};
    if (type == KeyType::Rsa) {
        arguments.insert(arguments.end(), {"-b", "2048"});
    }
    mustRun(keygen(std::move(arguments)));
    key.privateText = readFile(key.privatePath);
    const std::string publicText = readFile(key.publicPath);
    key.publicBase64 = word(publicText, 1);
    key.publicLine = word(publicText, 0) + " " + key.publicBase64;
    key.fingerprint = word(mustRun(keygen({"-l", "-E", "sha256", "-f", key.publicPath})), 1);
    return key;
}

} // namespace TarnisTest
