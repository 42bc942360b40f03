// A program whose session is held by a global object that is older than the session, and so than
// whatever the first session brings with it.

#include "integration/session/leftover/Leftovers.h"

#include <optional>

namespace {

std::optional<Tarnis::SSHSession> session;
TarnisTest::Leftovers leftovers;

} // namespace

int main(int argc, char** argv)
{
    return TarnisTest::use(session.emplace(), leftovers, argc, argv);
}
