#pragma once

namespace Tarnis {

/// Whether the processor has instructions for AES and for the multiplication that GCM
/// authenticates with. False where nothing tells.
bool hasAesInstructions();

} // namespace Tarnis
