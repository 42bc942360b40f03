#pragma once

#include <optional>

namespace TarnisTest {

/// Whether the kernel lists instructions for AES and for carry-less multiplication among the
/// processor's features; empty where it lists none.
std::optional<bool> kernelListsAes();

} // namespace TarnisTest
