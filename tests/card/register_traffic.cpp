#include "card/register_traffic.h"

#include <map>
#include <optional>
#include <sstream>
#include <utility>

#include "card/table_shortcut.h"
#include "enyx_hw.h"
#include "support/next_definition.h"

#define KOVA_INTERPOSED extern "C" __attribute__((visibility("default")))

namespace {

using kova::test::next_definition;
using kova::test::TableShortcut;

constexpr std::uint32_t kRegisterBytes = 4;
constexpr std::uint32_t kLargestTableWords = 16384 * 64;

std::string hex(std::uint64_t value) {
    return (std::ostringstream() << "0x" << std::hex << value).str();
}

bool is_table_register(std::uint32_t number) {
    const std::uint32_t in_core = number & ~0x7U;
    return in_core == 0x11000 || in_core == 0x21000;
}

/** Write address register of the table that a register belongs to. */
std::uint32_t table_of(std::uint32_t number) {
    return number & ~0x3U;
}

class Recorder {
 public:
    void write(std::uint32_t number, std::uint64_t value) {
        const std::uint32_t role = number & 0x3U;
        if (is_table_register(number) && role == 0 && is_pending(number + 1) && value < kLargestTableWords) {
            word(number, "=", value, std::exchange(pending_, {})->second);
            return;
        }
        flush_pending();
        if (is_table_register(number) && (role == 1 || role == 2)) {
            pending_ = {number, value};
            return;
        }
        line(hex(number) + " = " + hex(value));
    }

    void read(std::uint32_t number, std::uint64_t value) {
        if (is_table_register(number) && is_pending(number - 1)) {
            word(table_of(number), "->", std::exchange(pending_, {})->second, value);
            return;
        }
        flush_pending();
        line(hex(number) + " -> " + hex(value));
    }

    std::vector<std::string> take_lines() {
        flush_pending();
        end_run();
        return std::move(lines_);
    }

 private:
    /** Words of zero, one after the other. */
    struct Run {
        std::uint32_t table;
        std::string kind;
        std::uint64_t first;
        std::uint64_t last;
    };

    [[nodiscard]] bool is_pending(std::uint32_t number) const { return pending_ && pending_->first == number; }

    void word(std::uint32_t table, const char* kind, std::uint64_t address, std::uint64_t value) {
        if (value != 0) {
            line(hex(table) + "[" + std::to_string(address) + "] " + kind + " " + hex(value));
            return;
        }
        if (run_ && run_->table == table && run_->kind == kind && run_->last + 1 == address) {
            run_->last = address;
            return;
        }
        end_run();
        run_ = {table, kind, address, address};
    }

    void flush_pending() {
        if (pending_) {
            const auto [number, value] = *std::exchange(pending_, {});
            line(hex(number) + " = " + hex(value));
        }
    }

    void end_run() {
        if (run_) {
            const std::string rest = run_->first == run_->last ? "" : ".." + std::to_string(run_->last);
            lines_.push_back(hex(run_->table) + "[" + std::to_string(run_->first) + rest + "] " + run_->kind +
                             " 0");
        }
        run_.reset();
    }

    void line(std::string line) {
        end_run();
        lines_.push_back(std::move(line));
    }

    std::vector<std::string> lines_;
    std::optional<std::pair<std::uint32_t, std::uint64_t>> pending_;  // may turn out to be half of a word
    std::optional<Run> run_;
};

struct Answers {
    std::vector<std::uint64_t> values;
    std::size_t next = 0;

    std::uint64_t take() {
        const std::uint64_t value = values[next];
        if (next + 1 < values.size()) {
            ++next;
        }
        return value;
    }
};

std::optional<Recorder> recorder;
std::map<std::uint32_t, Answers> answers;
std::function<void(bool, std::uint32_t)> before_each_access;

}  // namespace

namespace kova::test {

void RegisterTraffic::start_recording() {
    recorder.emplace();
}

std::vector<std::string> RegisterTraffic::stop_recording() {
    std::vector<std::string> lines = recorder ? recorder->take_lines() : std::vector<std::string>();
    recorder.reset();
    return lines;
}

void RegisterTraffic::answer(std::uint32_t number, std::vector<std::uint64_t> values) {
    answers[number] = Answers{.values = std::move(values)};
}

void RegisterTraffic::before_each(std::function<void(bool, std::uint32_t)> action) {
    before_each_access = std::move(action);
}

void RegisterTraffic::reset() {
    recorder.reset();
    answers.clear();
    before_each_access = {};
}

}  // namespace kova::test

KOVA_INTERPOSED int enyx_hw_write(enyx_hw_core* core, const enyx_hw_register_description* description,
                                  uint64_t value) {
    static auto* const write = next_definition<decltype(enyx_hw_write)>("enyx_hw_write");
    const auto number = static_cast<std::uint32_t>(description->byte_offset / kRegisterBytes);
    if (TableShortcut::is_taken()) [[unlikely]] {
        if (TableShortcut::write(number, static_cast<std::uint32_t>(value))) {
            return 0;
        }
        enyx_hw_core_lock(core);
    }
    if (before_each_access) {
        before_each_access(true, number);
    }
    const int result = write(core, description, value);
    TableShortcut::wrote(number, value);
    if (recorder && result == 0) {
        recorder->write(number, value);
    }
    return result;
}

KOVA_INTERPOSED int enyx_hw_read(enyx_hw_core* core, const enyx_hw_register_description* description,
                                 uint64_t* value) {
    static auto* const read = next_definition<decltype(enyx_hw_read)>("enyx_hw_read");
    const auto number = static_cast<std::uint32_t>(description->byte_offset / kRegisterBytes);
    if (TableShortcut::is_taken()) {
        TableShortcut::leave();
        enyx_hw_core_lock(core);
    }
    if (before_each_access) {
        before_each_access(false, number);
    }
    const int result = read(core, description, value);
    if (result != 0) {
        return result;
    }
    if (!answers.empty()) {
        const auto answer = answers.find(number);
        *value = answer != answers.end() ? answer->second.take() : *value;
    }
    if (recorder) {
        recorder->read(number, *value);
    }
    return result;
}
