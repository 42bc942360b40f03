#include <FileSystem/StorageSystemBulkTransfer.h>

namespace FileSystem {

StorageSystemBulkTransfer::~StorageSystemBulkTransfer() = default;

} // namespace FileSystem
