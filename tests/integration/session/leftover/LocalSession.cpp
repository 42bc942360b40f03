// A program whose session is a static object of a function.

#include "integration/session/leftover/Leftovers.h"

namespace {

Tarnis::SSHSession& theSession()
{
    static Tarnis::SSHSession session;
    return session;
}

TarnisTest::Leftovers& theLeftovers()
{
    static TarnisTest::Leftovers leftovers;
    return leftovers;
}

} // namespace

int main(int argc, char** argv)
{
    return TarnisTest::use(theSession(), theLeftovers(), argc, argv);
}
