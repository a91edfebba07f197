/**
 * The log of a process that starts afresh: what it wrote to standard output and to its file.
 */
#ifndef KOVA_TESTS_SUPPORT_LOG_RUN_H
#define KOVA_TESTS_SUPPORT_LOG_RUN_H

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/stdout_capture.h"
#include "support/temp_dir.h"

namespace kova::test {

/** Lines of a text without their line feeds; a last line that has none is marked as torn. */
inline std::vector<std::string> split_lines(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t begin = 0;
    while (begin < text.size()) {
        const std::size_t end = text.find('\n', begin);
        if (end == std::string::npos) {
            lines.push_back(text.substr(begin) + "<torn>");
            break;
        }
        lines.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return lines;
}

/** One log line taken apart. */
struct LogLine {
    std::string tag;     ///< with its colour, as "\033[31;1m [E]"
    std::string date;    ///< YYYYMMDD
    std::string time;    ///< HHMMSS
    std::string thread;  ///< decimal
    std::string body;    ///< what follows the thread's id, without the reset of the colour
};

/** Takes a line without its line feed apart; nothing if it is not a whole log line. */
inline std::optional<LogLine> parse_log_line(const std::string& line) {
    static const std::string reset = "\x1b[0m ";
    std::array<char, 3> colour{};
    std::array<char, 2> level{};
    std::array<char, 9> date{};
    std::array<char, 3> hour{};
    std::array<char, 3> minute{};
    std::array<char, 3> second{};
    std::array<char, 21> thread{};
    int length = 0;
    const int fields = std::sscanf(
        line.c_str(), "\x1b[%2[0-9];1m [%1[A-Z]] [%8[0-9]][%2[0-9]:%2[0-9]:%2[0-9]][%20[0-9]]%n", colour.data(),
        level.data(), date.data(), hour.data(), minute.data(), second.data(), thread.data(), &length);
    const auto head = static_cast<std::size_t>(length);
    if (fields != 7 || head == 0 || line.size() < head + 1 + reset.size() || line[head] != ' ' ||
        !line.ends_with(reset)) {
        return std::nullopt;
    }
    std::string body = line.substr(head + 1, line.size() - head - 1 - reset.size());
    if (body.find('\x1b') != std::string::npos) {
        return std::nullopt;  // a piece of another line
    }
    return LogLine{std::string("\x1b[") + colour.data() + ";1m [" + level.data() + "]", date.data(),
                   std::string(hour.data()) + minute.data() + second.data(), thread.data(), std::move(body)};
}

/** What one process left behind. */
struct LogRun {
    int status = 0;                            ///< as waitpid gives it
    std::string console;                       ///< its standard output
    std::map<std::string, std::string> files;  ///< relative path and content of every file in its directory

    [[nodiscard]] bool ended_well() const { return WIFEXITED(status) && WEXITSTATUS(status) == 0; }

    /** The content of the only file, or a text that no test expects. */
    [[nodiscard]] std::string file() const {
        return files.size() == 1 ? files.begin()->second
                                 : "<" + std::to_string(files.size()) + " files instead of one>";
    }
};

/** The bodies of the lines of a text; "<torn>" stands for what is not a whole log line. */
inline std::vector<std::string> log_bodies(const std::string& text) {
    std::vector<std::string> bodies;
    for (const std::string& line : split_lines(text)) {
        const std::optional<LogLine> parsed = parse_log_line(line);
        bodies.push_back(parsed ? parsed->body : "<torn>");
    }
    return bodies;
}

/** The lines of a text, each as "[level][function]message"; "<torn>" and the line for what is not a whole one.
 */
inline std::vector<std::string> log_messages(const std::string& text) {
    std::vector<std::string> messages;
    for (const std::string& line : split_lines(text)) {
        const std::optional<LogLine> parsed = parse_log_line(line);
        const std::size_t end_of_file_name = parsed ? parsed->body.find(']') : std::string::npos;
        messages.push_back(end_of_file_name == std::string::npos
                               ? "<torn>" + line
                               : parsed->tag.substr(parsed->tag.find(' ') + 1) +
                                     parsed->body.substr(end_of_file_name + 1));
    }
    return messages;
}

/**
 * Runs body in a process of its own that stands in a fresh directory, and waits for its end.
 *
 * The process ends as an application does, by exit(); it is killed when it hangs for a minute.
 */
template <typename Body>
LogRun run_apart(Body body) {
    const TempDir directory;
    LogRun run;
    {
        const StdoutCapture capture;
        const pid_t child = ::fork();
        if (child == 0) {
            ::alarm(60);
            if (::chdir(directory.path().c_str()) != 0) {
                std::_Exit(3);
            }
            body();
            std::exit(0);
        }
        if (child < 0 || ::waitpid(child, &run.status, 0) != child) {
            run.status = -1;
        }
        run.console = capture.text();
    }
    for (const auto& entry : std::filesystem::recursive_directory_iterator(directory.path())) {
        if (entry.is_regular_file()) {
            std::ifstream file(entry.path(), std::ios::binary);
            run.files[std::filesystem::relative(entry.path(), directory.path()).string()] =
                (std::ostringstream() << file.rdbuf()).str();
        }
    }
    return run;
}

}  // namespace kova::test

#endif  // KOVA_TESTS_SUPPORT_LOG_RUN_H
