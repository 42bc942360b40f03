#include "files/LookUpCommand.h"

#include "Failure.h"

#include <cstddef>
#include <utility>

namespace TarnisTool {

void LookUpCommand::workOnAll(RemotePlace& place, const std::vector<std::string>& paths)
{
    std::vector<Tell> answers(paths.size());
    Inquiry inquiry(place.system());
    inquiry.expect(paths.size());
    std::size_t asked = 0;
    for (std::size_t next = 0; next < paths.size(); ++next) {
        for (; asked < paths.size() && asked - next < inquiry.capacity(); ++asked) {
            ask(place, inquiry, paths[asked],
                [&answer = answers[asked]](Tell tell) { answer = std::move(tell); });
        }
        while (!answers[next]) {
            inquiry.wait();
        }
        try {
            std::exchange(answers[next], nullptr)();
        } catch (const Failure& failure) {
            note(failure);
        }
    }
}

} // namespace TarnisTool
