#pragma once

#include <string>

namespace Tarnis {

/// Why what is at a path cannot be read as a file, a value of errno: nothing is there, it is not
/// permitted, it is a directory. 0 when it can be read. libssh does not tell: to it, such a file is
/// an empty one, or simply not there.
int errorOfReading(const std::string& path);

} // namespace Tarnis
