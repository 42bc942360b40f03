#pragma once

#include "posix/FileDescriptor.h"

namespace TarnisTest {

using UniqueFd = Posix::FileDescriptor;

} // namespace TarnisTest
