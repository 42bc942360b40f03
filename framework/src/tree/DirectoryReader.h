#pragma once

#include <FileSystem/Failure.h>
#include <FileSystem/StorageSystemQueue.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace FileSystem {

/// What a directory of a tree holds.
struct DirectoryContents
{
    /// In ascending order of the bytes of their names, each with its type.
    std::vector<StorageSystemEntry> entries;
    /// Of entries whose type cannot be told: they are not among the others.
    std::vector<Failure> untold;
    /// Of entries that were listed and are not there: no more are they.
    std::vector<Failure> gone;
    /// Why there may be more than these.
    Failure failure;

    /// What is missing is missing for want of descriptors, handles or memory; no failure for all
    /// other reasons.
    Failure shortage() const;
};

/// Reads one directory of a tree, so that nothing that it gives was reached through a link that has
/// taken the directory's place: it is looked at again once its entries are there.
class DirectoryReader : public std::enable_shared_from_this<DirectoryReader>
{
public:
    using Done = std::function<void(DirectoryContents& contents)>;

    /// Whether more is wanted; asked as entries come. Once it says no, the reading ends with
    /// Cancelled and what it has so far, without asking for anything else.
    using GoesOn = std::function<bool()>;

    /// \param queue must outlive what is in flight on it.
    static void read(StorageSystemQueue& queue, std::string path, GoesOn goesOn, Done done);

private:
    DirectoryReader(StorageSystemQueue& queue, std::string path, GoesOn goesOn, Done done);

    void list();
    bool isStopped();
    void checkDirectory();
    void checked(const Failure& failure, const StorageSystemAttributes& now);
    void askTypes();
    void askNextTypes();
    void askType(std::size_t index);
    void finish();

    StorageSystemQueue& queue_;
    std::string path_;
    GoesOn goesOn_;
    Done done_;
    DirectoryContents contents_;
    std::size_t next_ = 0;  ///< The first entry whose type may have to be asked for.
    std::size_t asked_ = 0; ///< How many types are in flight.
};

} // namespace FileSystem
