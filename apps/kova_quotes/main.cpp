/**
 * kova-quotes: receives the quotes of one card channel and shows them.
 */
#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <iostream>
#include <memory>

#include "KovaShfeMdApi.h"
#include "kova_quotes/exit_code.h"
#include "kova_quotes/options.h"
#include "kova_quotes/quote_intake.h"
#include "kova_quotes/quote_output.h"
#include "kova_quotes/quote_writer.h"
#include "kova_quotes/receive_loop.h"
#include "kova_quotes/signal_watch.h"
#include "kova_quotes/summary.h"

namespace kova::app {

namespace {

struct DestroyApi {
    void operator()(CKovaShfeMdApi* api) const { CKovaShfeMdApi::DestroyKovaShfeMdApi(*api); }
};

/** Shows and keeps what the run came to; the program's exit code. */
int conclude(const Options& options, const Summary& summary, const QuoteOutput& output,
             const LoopWorld& world) {
    int exit_code = summary.end == End::kFailure ? kReceiveFailed : kEndedNormally;
    if (exit_code == kReceiveFailed) {
        world.tell_user("receiving failed: the card could not be brought up again, the library's log says why");
    }
    if (output.failed()) {
        world.tell_user("writing the quotes failed: " + output.failure());
        exit_code = kStartOrOutputFailed;
    }
    std::fputs(summary_text(summary, options.stats).c_str(), stderr);
    if (!options.summary_file.empty()) {
        if (const std::string problem = write_summary(options.summary_file, summary); !problem.empty()) {
            world.tell_user(fmt::format("writing the summary to {} failed: {}", options.summary_file, problem));
            exit_code = kStartOrOutputFailed;
        }
    }
    return exit_code;
}

int receive_quotes(const Options& options) {
    const LoopWorld world = real_world();
    const int kept = keep_standard_output();
    if (kept == -1) {
        world.tell_user(fmt::format("no standard output for the quotes: {}", std::strerror(errno)));
        return kStartOrOutputFailed;
    }
    QuoteOutput output(kept, world.is_signalled);
    const std::unique_ptr<QuoteWriter> writer = make_quote_writer(options.format, output);
    QuoteIntake intake(options.instruments, *writer);

    const std::unique_ptr<CKovaShfeMdApi, DestroyApi> api(CKovaShfeMdApi::CreateKovaShfeMdApi());
    if (!api) {
        world.tell_user("no memory for a receiver");
        return kStartOrOutputFailed;
    }
    ReceiveLoop loop(*api, options, intake, *writer, world);
    if (const int32_t result = loop.start(); result != 0) {
        world.tell_user(fmt::format("start failed with {}: the library's log says why", result));
        return kStartOrOutputFailed;
    }
    const SignalWatch signals;
    writer->begin();
    const End end = loop.run();
    writer->finish();
    return conclude(options, summarise(end, loop, intake), output, world);
}

}  // namespace

}  // namespace kova::app

int main(int argc, char** argv) {
    try {
        const auto [options, exit_code] = kova::app::read_command_line(argc, argv, std::cout, std::cerr);
        return options ? kova::app::receive_quotes(*options) : exit_code;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kova-quotes: %s\n", error.what());
        return kova::app::kStartOrOutputFailed;
    }
}
