#include "PeerFlags.h"

#include <string>
#include <utility>
#include <vector>

namespace ovdtool {

void AddPeerFlagHints(CLI::App* command) {
    const std::vector<std::pair<std::string, std::string>> hints = {
        {"--float", "the restored stack is float already; --output-type f32|u16 chooses"},
        {"--bg,--background",
         "ovd estimates the background from the stack itself; subtract a known offset from the "
         "stack beforehand"},
        {"--gpu", "ovd restores on the processors; --threads N sets how many it uses"},
        {"--tilesize,--tile-size",
         "ovd cuts the stack into pieces that fit --memory-budget MB; a smaller budget gives "
         "smaller pieces"},
    };
    for (const auto& [names, hint] : hints) {
        const std::string shown = names.substr(0, names.find(','));
        command
            ->add_option_function<std::string>(
                names,
                [shown, hint](const std::string&) { throw CLI::ValidationError(shown, hint); })
            ->expected(0, 1)
            ->group("");
    }
}

} // namespace ovdtool
