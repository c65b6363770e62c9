#include "OutputOptions.h"

namespace ovdtool {

void AddOutputOptions(CLI::App* command, OutputOptions& o, const std::string& description,
                      bool required) {
    CLI::Option* out = command->add_option("OUT,-o,--out", o.path, description);
    if (required)
        out->required();
    command->add_flag("--overwrite", o.overwrite, "replace an output file that exists");
}

} // namespace ovdtool
