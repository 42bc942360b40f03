#pragma once

#include <string>

namespace Tarnis {

// Notes for FileSystem::Failure::last() why a private key that was asked for could not be read: no
// such file, one that cannot be read, no key in it, or a pass phrase that does not fit. Asks
// nobody for a pass phrase. Needs no session and no lock.

void noteKeyTextFailure(const std::string& text);
void noteKeyFileFailure(const std::string& path);

} // namespace Tarnis
