#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace FileSystem {

struct TreeCopyPath;

/// With the letters of ASCII small, as volumes do that tell no case.
std::string withSmallLetters(std::string name);

/// Which source each target of a copy belongs to, where several of them may go to one place. Paths
/// are told apart as texts.
class CopyClaims
{
public:
    /// What is said to whoever wants a target.
    enum class Answer
    {
        Free,
        Doubtful, ///< The same in small letters has gone to another source.
        Same,     ///< This source has it already.
        Taken,    ///< Another source has it.
    };

    Answer take(const std::string& target, const std::string& source);

    /// Whether take() would find it doubtful.
    bool isDoubtful(const std::string& target) const;

    /// Something is still to go to a target, or no more.
    void expect(const std::string& target);
    void expectNoMore(const std::string& target);

    /// Whether something is still to go somewhere below this directory.
    bool isExpectedBelow(const std::string& directory) const;

    /// A directory stays open to what is still to come, or no more. As long as it does, so do those
    /// that it is in.
    void keepOpen(const std::string& directory);
    void letGo(const std::string& directory);

    bool isKeptOpen(const std::string& directory) const;

    /// A directory was not there before.
    void noteNew(const std::string& directory);
    bool isNew(const std::string& directory) const;

private:
    std::unordered_map<std::string, std::string> sources_;
    std::unordered_map<std::string, std::string> spellings_; ///< The first one, by small letters.
    std::unordered_set<std::string> newDirectories_;
    std::unordered_map<std::string, std::size_t> expectedBelow_;
    std::unordered_multiset<std::string> keptOpen_;
};

/// When something that was named is copied, and whether others share its place.
struct CopyTurn
{
    /// Those of one turn can be copied together: none of their targets is another's, nor within it.
    std::size_t turn = 0;
    bool isShared = false;   ///< What goes there has to claim its target.
    bool isRepeated = false; ///< It was named before.
};

/// The turns of all that was named, so that what was named first is there first.
std::vector<CopyTurn> turnsOf(const std::vector<TreeCopyPath>& paths);

} // namespace FileSystem
