#pragma once

#include "tree/EntryTransfer.h"

#include <string>

namespace FileSystem {

/// The copy of a symbolic link: its text.
class LinkTransfer final : public EntryTransfer
{
public:
    LinkTransfer(CopyContext& context, TreeEntry entry, Standing standing, bool mustBeNew);
    ~LinkTransfer() override;

private:
    bool takeTemporaryPath() override;
    void begin() override;
    void goOnAfterLook() override;
    void make();

    std::string text_;
};

} // namespace FileSystem
