#include "tree/CopyClaims.h"

#include "path/PathText.h"

#include <FileSystem/TreeOperations.h>

#include <algorithm>
#include <utility>

namespace FileSystem {

namespace {

/// A path as a key: "" is the directory that relative ones begin in.
std::string keyOf(const std::string& path)
{
    auto key = PathText::canonize(path);
    return key == "." ? std::string() : key;
}

/// Calls `use` with each directory that the path is in.
template <class Use>
void eachParent(std::string key, Use use)
{
    while (!key.empty() && key != "/") {
        key = PathText::parentId(key);
        use(key);
    }
}

/// The turns that are taken so far, by place in small letters.
class Turns
{
public:
    /// The next free one for a place.
    std::size_t take(const std::string& place)
    {
        std::size_t turn = 0;
        const auto comeAfter = [&turn](const auto& turns, const std::string& key) {
            const auto found = turns.find(key);
            turn = found != turns.end() ? std::max(turn, found->second + 1) : turn;
        };
        comeAfter(at_, place);
        comeAfter(below_, place);
        eachParent(place, [&](const std::string& parent) { comeAfter(at_, parent); });
        at_[place] = turn;
        eachParent(place, [&](const std::string& parent) {
            auto& last = below_[parent];
            last = std::max(last, turn);
        });
        ++count_[place];
        return turn;
    }

    /// Whether another place is the same, within it or around it.
    bool isShared(const std::string& place) const
    {
        bool isWithin = false;
        eachParent(place, [&](const std::string& parent) {
            isWithin = isWithin || at_.count(parent) != 0;
        });
        return isWithin || below_.count(place) != 0 || count_.at(place) > 1;
    }

private:
    std::unordered_map<std::string, std::size_t> at_;
    std::unordered_map<std::string, std::size_t> below_; ///< The last one of what is below.
    std::unordered_map<std::string, std::size_t> count_;
};

} // namespace

std::string withSmallLetters(std::string name)
{
    std::transform(name.begin(), name.end(), name.begin(), [](char letter) {
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    });
    return name;
}

CopyClaims::Answer CopyClaims::take(const std::string& target, const std::string& source)
{
    const auto key = keyOf(target);
    const auto [claim, isFirst] = sources_.emplace(key, keyOf(source));
    if (!isFirst) {
        return claim->second == keyOf(source) ? Answer::Same : Answer::Taken;
    }
    const auto spelling = spellings_.emplace(withSmallLetters(key), key).first;
    return spelling->second == key ? Answer::Free : Answer::Doubtful;
}

bool CopyClaims::isDoubtful(const std::string& target) const
{
    const auto key = keyOf(target);
    const auto spelling = spellings_.find(withSmallLetters(key));
    return spelling != spellings_.end() && spelling->second != key;
}

void CopyClaims::expect(const std::string& target)
{
    eachParent(keyOf(target), [this](const std::string& parent) { ++expectedBelow_[parent]; });
}

void CopyClaims::expectNoMore(const std::string& target)
{
    eachParent(keyOf(target), [this](const std::string& parent) { --expectedBelow_[parent]; });
}

bool CopyClaims::isExpectedBelow(const std::string& directory) const
{
    const auto found = expectedBelow_.find(keyOf(directory));
    return found != expectedBelow_.end() && found->second != 0;
}

void CopyClaims::keepOpen(const std::string& directory)
{
    keptOpen_.insert(keyOf(directory));
    expect(directory);
}

void CopyClaims::letGo(const std::string& directory)
{
    keptOpen_.erase(keptOpen_.find(keyOf(directory)));
    expectNoMore(directory);
}

bool CopyClaims::isKeptOpen(const std::string& directory) const
{
    return keptOpen_.count(keyOf(directory)) != 0;
}

void CopyClaims::noteNew(const std::string& directory)
{
    newDirectories_.insert(keyOf(directory));
}

bool CopyClaims::isNew(const std::string& directory) const
{
    return newDirectories_.count(keyOf(directory)) != 0;
}

std::vector<CopyTurn> turnsOf(const std::vector<TreeCopyPath>& paths)
{
    std::vector<CopyTurn> all(paths.size());
    std::vector<std::string> places(paths.size());
    CopyClaims claims;
    Turns turns;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        places[i] = withSmallLetters(keyOf(paths[i].target));
        const auto answer = claims.take(paths[i].target, paths[i].source);
        all[i].isRepeated = answer == CopyClaims::Answer::Same;
        all[i].turn = all[i].isRepeated ? 0 : turns.take(places[i]);
    }
    for (std::size_t i = 0; i < paths.size(); ++i) {
        all[i].isShared = turns.isShared(places[i]);
    }
    return all;
}

} // namespace FileSystem
