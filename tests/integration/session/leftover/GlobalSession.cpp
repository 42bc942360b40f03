// A program whose session is a global object, and so is what was made from it.

#include "integration/session/leftover/Leftovers.h"

namespace {

// In this order, so that the session goes first.
TarnisTest::Leftovers leftovers;
Tarnis::SSHSession session;

} // namespace

int main(int argc, char** argv)
{
    return TarnisTest::use(session, leftovers, argc, argv);
}
