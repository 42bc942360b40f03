#include <FileSystem/StorageSystemBulkTransfer.h>

namespace FileSystem {

StorageSystemBulkTransfer::~StorageSystemBulkTransfer() = default;

void StorageSystemBulkTransfer::expectEnd(std::uint64_t /*offset*/) {}

} // namespace FileSystem
