/**
 * A kova-quotes program under test that receives one channel of a card, in a directory of its own.
 */
#ifndef KOVA_TESTS_SUPPORT_RECEIVER_H
#define KOVA_TESTS_SUPPORT_RECEIVER_H

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/process.h"
#include "support/temp_dir.h"

namespace kova::test {

class Receiver {
 public:
    /**
     * Starts `kova-quotes` on the channel, CSV on its output and sleeping between empty polls.
     *
     * @param configuration further lines of its configuration, from the [config] section on.
     */
    Receiver(std::uint32_t card, std::uint32_t channel, std::vector<std::string> arguments = {},
             const std::string& configuration = {})
        : arguments_(whole(directory_.path(), std::move(arguments))) {
        std::ofstream(config()) << "[config]\ndevice=xilinx" << card << ':' << channel
                                << "\nlog_level=7\nlog_path=" << directory_.path().string() << '\n'
                                << configuration;
        start();
    }

    /**
     * Starts the program anew, as an operator does: same arguments, same file. What the earlier one wrote is
     * gone.
     *
     * @param further_lines behind those that the file has.
     */
    void start_again(const std::string& further_lines = {}) {
        std::ofstream(config(), std::ios::app) << further_lines;
        start();
    }

    [[nodiscard]] Process& process() { return *process_; }
    [[nodiscard]] std::filesystem::path directory() const { return directory_.path(); }

    /** What it wrote with --summary; only after its end. */
    [[nodiscard]] nlohmann::json summary() const {
        std::ifstream file(directory_.path() / "summary.json");
        return nlohmann::json::parse(file, nullptr, false);
    }

    /** Values of one column of the quotes written so far, the last row left out unless it is whole. */
    [[nodiscard]] std::vector<std::string> column(const std::string& name) const {
        std::istringstream lines(process_->output());
        std::string line;
        std::getline(lines, line);
        const std::vector<std::string> names = split(line);
        std::size_t position = 0;
        while (position < names.size() && names[position] != name) {
            ++position;
        }
        std::vector<std::string> values;
        while (std::getline(lines, line)) {
            const std::vector<std::string> fields = split(line);
            if (fields.size() == names.size() && position < fields.size()) {
                values.push_back(fields[position]);
            }
        }
        return values;
    }

    /** Product codes of the instruments that came: "cu" of cu2701. */
    [[nodiscard]] std::set<std::string> products() const {
        std::set<std::string> products;
        for (const std::string& id : column("inst_id")) {
            products.insert(id.substr(0, id.find_first_of("0123456789")));
        }
        return products;
    }

 private:
    static std::vector<std::string> whole(const std::filesystem::path& directory,
                                          std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(),
                         {"--config", (directory / "kova.ini").string(), "--format", "csv", "--idle", "sleep",
                          "--summary", (directory / "summary.json").string()});
        return arguments;
    }

    [[nodiscard]] std::filesystem::path config() const { return directory_.path() / "kova.ini"; }

    void start() { process_.emplace(Process::start(KOVA_QUOTES_PROGRAM, arguments_)); }

    static std::vector<std::string> split(const std::string& line) {
        std::vector<std::string> fields;
        std::istringstream rest(line);
        for (std::string field; std::getline(rest, field, ',');) {
            fields.push_back(field);
        }
        return fields;
    }

    TempDir directory_;
    std::vector<std::string> arguments_;
    std::optional<Process> process_;
};

}  // namespace kova::test

#endif  // KOVA_TESTS_SUPPORT_RECEIVER_H
