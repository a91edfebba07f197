/** kova-simcard: powers a simulated card, looks at one, tells its program what to do, powers it off. */

#include <cstdio>
#include <variant>

#include "kova_simcard/exit_codes.h"
#include "kova_simcard/off.h"
#include "kova_simcard/options.h"
#include "kova_simcard/run.h"
#include "kova_simcard/status.h"
#include "kova_simcard/tell.h"

namespace {

using namespace kova::app;

int perform(const Answer& answer) {
    std::fputs(answer.text.c_str(), answer.exit_code == kExitDone ? stdout : stderr);
    return answer.exit_code;
}
int perform(const RunOptions& options) {
    return run(options);
}
int perform(const StatusOptions& options) {
    return show_status(options);
}
int perform(const TellOptions& options) {
    return tell(options);
}
int perform(const OffOptions& options) {
    return power_off(options);
}

}  // namespace

int main(int argument_count, char** arguments) {
    return std::visit([](const auto& command) { return perform(command); },
                      parse_command_line(argument_count, arguments));
}
