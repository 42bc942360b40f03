#include "support/KeyPair.h"

#include "support/ChildProcess.h"

#include <filesystem>
#include <fstream>
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

std::string openSsl(std::vector<std::string> arguments, const std::string& input = "")
{
    arguments.insert(arguments.begin(), "openssl");
    Command command;
    command.arguments = std::move(arguments);
    command.input = input;
    return mustRun(command);
}

// "type base64" of the Ed25519 key whose public half is the end of this DER text.
std::string ed25519PublicLine(const std::string& publicDer)
{
    using namespace std::string_literals;
    constexpr std::size_t keySize = 32;
    const std::string blob =
        "\0\0\0\x0bssh-ed25519\0\0\0\x20"s + publicDer.substr(publicDer.size() - keySize);
    return "ssh-ed25519 " + openSsl({"base64", "-A"}, blob);
}

// ssh-keygen neither writes nor reads an Ed25519 key in this form.
void generateEd25519Pkcs8(const KeyPair& key, const std::string& passPhrase)
{
    const std::string secret = "pass:" + passPhrase;
    std::vector<std::string> generate{"genpkey", "-algorithm", "ed25519", "-out", key.privatePath};
    std::vector<std::string> toPublic{"pkey",    "-pubout", "-outform", "DER",
                                      "-passin", secret,    "-in",      key.privatePath};
    if (!passPhrase.empty()) {
        generate.insert(generate.end(), {"-aes256", "-pass", secret});
    }
    openSsl(std::move(generate));
    std::filesystem::permissions(key.privatePath, std::filesystem::perms(0600));
    std::ofstream(key.publicPath) << ed25519PublicLine(openSsl(std::move(toPublic))) << "\n";
}

void generateWithKeygen(const KeyPair& key, KeyType type, KeyFormat format,
                        const std::string& passPhrase)
{
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
    if (type == KeyType::Ed25519 && format == KeyFormat::Pem) {
        throw std::invalid_argument("an Ed25519 key has no form of its own in PEM");
    }
    KeyPair key;
    key.privatePath = directory.file(name);
    key.publicPath = key.privatePath + ".pub";
    if (type == KeyType::Ed25519 && format == KeyFormat::Pkcs8) {
        generateEd25519Pkcs8(key, passPhrase);
    } else {
        generateWithKeygen(key, type, format, passPhrase);
    }
    key.privateText = readFile(key.privatePath);
    const std::string publicText = readFile(key.publicPath);
    key.publicBase64 = word(publicText, 1);
    key.publicLine = word(publicText, 0) + " " + key.publicBase64;
    key.fingerprint = word(mustRun(keygen({"-l", "-E", "sha256", "-f", key.publicPath})), 1);
    return key;
}

} // namespace TarnisTest
