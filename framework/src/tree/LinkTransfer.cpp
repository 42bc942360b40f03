#include "tree/LinkTransfer.h"

#include <utility>

namespace FileSystem {

LinkTransfer::LinkTransfer(CopyContext& context, TreeEntry entry, Standing standing, bool mustBeNew)
    : EntryTransfer(context, std::move(entry), std::move(standing), mustBeNew)
{}

LinkTransfer::~LinkTransfer() = default;

/// In place, for a system that does not rename.
bool LinkTransfer::takeTemporaryPath()
{
    if (!context().options.isInPlace || standing()) {
        return EntryTransfer::takeTemporaryPath();
    }
    const bool isFirst = temporaryPath().empty();
    useFinalPath();
    return isFirst;
}

void LinkTransfer::begin()
{
    context().source.readLink(entry().path,
                              then<const std::string&>([this](const std::string& text) {
                                  text_ = text;
                                  make();
                              }));
}

void LinkTransfer::make()
{
    if (!takeTemporaryPath()) {
        giveUp(FailureCode::Exists, temporaryPath());
        return;
    }
    context().target.makeLink(text_, temporaryPath(), always<>([this](const Failure& why) {
                                  if (why.code() == FailureCode::Exists && !isGivenUp()) {
                                      make();
                                      return;
                                  }
                                  // Also a link that does not read back as it should may have been
                                  // made. Under its own name it may be somebody else's.
                                  const bool isHidden = temporaryPath() != entry().target;
                                  if (!why || (isHidden && why.code() != FailureCode::Exists)) {
                                      ownTemporary();
                                  }
                                  if (why) {
                                      giveUp(why);
                                  } else if (!isGivenUp()) {
                                      lookAgain();
                                  }
                              }));
}

void LinkTransfer::goOnAfterLook()
{
    publish();
}

} // namespace FileSystem
