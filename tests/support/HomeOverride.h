#pragma once

#include <string>

namespace TarnisTest {

/// The directory that getpwuid and getpwuid_r name as the user's home in this program. At first an
/// empty one of the program's own, removed when it ends; HOME names it too.
///
/// SSH client code finds default keys and the known-hosts file through these calls, not through
/// HOME: without this, a test could read or even change what belongs to the user who runs it. All
/// other fields of the user's entry stay as they are. Linking the object library tarnis_test_home
/// into a program is enough; SSH_AUTH_SOCK and its like are removed from the environment before
/// main begins.
std::string homeDirectory();

/// Makes another directory the home, and HOME with it. Not while other threads read the
/// environment.
void setHomeDirectory(const std::string& path);

} // namespace TarnisTest
