#include "ByteStream.h"

namespace FileSystem {

namespace {

/// Ends a bulk transfer whose outcome no longer matters.
void finishQuietly(StorageSystemBulkTransfer& bulk) noexcept
{
    try {
        bulk.finish();
    } catch (...) {
        // The copy has failed already, or has all it wants.
    }
}

} // namespace

ByteSource::ByteSource(const StorageSystemFile& file, StorageSystemBulkTransfer* bulk)
    : file_(file)
    , bulk_(bulk)
{}

ByteSource::~ByteSource()
{
    if (bulkStarted_) {
        finishQuietly(*bulk_);
    }
}

bool ByteSource::start(std::optional<std::uint64_t> expectedEnd)
{
    if (bulk_ != nullptr && expectedEnd) {
        bulk_->expectEnd(*expectedEnd);
    }
    bulkStarted_ = bulk_ != nullptr && bulk_->start(0);
    return bulkStarted_ || file_.seek(0);
}

StorageSystemReadResult ByteSource::read(char* buffer, std::uint64_t size)
{
    return bulkStarted_ ? bulk_->read(buffer, size) : file_.readFully(buffer, size);
}

ByteSink::ByteSink(StorageSystemFile& file, StorageSystemBulkTransfer* bulk)
    : file_(file)
    , bulk_(bulk)
{}

ByteSink::~ByteSink()
{
    if (bulkStarted_) {
        finishQuietly(*bulk_);
    }
}

bool ByteSink::start()
{
    const auto position = file_.tell();
    if (!position) {
        return false;
    }
    position_ = *position;
    bulkStarted_ = bulk_ != nullptr && bulk_->start(position_);
    return true;
}

bool ByteSink::write(const char* buffer, std::uint64_t size)
{
    position_ += size;
    return bulkStarted_ ? bulk_->write(buffer, size) : file_.writeFully(buffer, size);
}

bool ByteSink::finish()
{
    if (!bulkStarted_) {
        return true;
    }
    bulkStarted_ = false;
    return bulk_->finish() && file_.seek(position_);
}

} // namespace FileSystem
