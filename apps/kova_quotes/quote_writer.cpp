#include "kova_quotes/quote_writer.h"

#include <cstdlib>
#include <string_view>

#include "kova_quotes/quote_text.h"
#include "kova_quotes/table_text.h"
#include "kova_quotes/terminal_table.h"

namespace kova::app {

namespace {

/** A header and every quote as one line. */
class CsvWriter final : public QuoteWriter {
 public:
    using QuoteWriter::QuoteWriter;

    void begin() override { output().commit(csv_header(output().reserve(kMaxQuoteText))); }
    void write(const KovaShfeMdType& quote) override {
        output().commit(csv_row(output().reserve(kMaxQuoteText), quote));
    }
};

/** Every quote as an object on a line of its own. */
class JsonWriter final : public QuoteWriter {
 public:
    using QuoteWriter::QuoteWriter;

    void write(const KovaShfeMdType& quote) override {
        output().commit(json_line(output().reserve(kMaxQuoteText), quote));
    }
};

/** Every quote as a row of a table, for a file or another program. */
class PlainTableWriter final : public QuoteWriter {
 public:
    using QuoteWriter::QuoteWriter;

    void begin() override { output().commit(table_header(output().reserve(kMaxTableText), kLayout)); }
    void write(const KovaShfeMdType& quote) override {
        output().commit(table_row(output().reserve(kMaxTableText), quote, kLayout, std::nullopt));
    }

 private:
    static constexpr TableLayout kLayout{.columns = TableLayout::kAllColumns, .has_colour = false};
};

class NoWriter final : public QuoteWriter {
 public:
    using QuoteWriter::QuoteWriter;
    void write(const KovaShfeMdType& /*quote*/) override {}
};

bool terminal_shows_colours() {
    const char* no_colour = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    return (no_colour == nullptr || *no_colour == '\0') && terminal != nullptr &&
           std::string_view(terminal) != "dumb";
}

}  // namespace

void QuoteWriter::tick(std::chrono::nanoseconds now) {
    on_tick(now);
    if (output_.has_pending() && now - flushed_at_ >= kFlushEvery) {
        output_.flush();
        flushed_at_ = now;
    }
}

void QuoteWriter::finish() {
    on_finish();
    output_.close();
}

std::unique_ptr<QuoteWriter> make_quote_writer(Format format, QuoteOutput& output) {
    switch (format) {
        case Format::kCsv:
            return std::make_unique<CsvWriter>(output);
        case Format::kJson:
            return std::make_unique<JsonWriter>(output);
        case Format::kNone:
            return std::make_unique<NoWriter>(output);
        case Format::kTable:
            break;
    }
    if (!output.is_terminal()) {
        return std::make_unique<PlainTableWriter>(output);
    }
    const std::size_t width = output.terminal_width();
    return std::make_unique<TerminalTable>(
        output, TableLayout::for_width(width == 0 ? 80 : width, terminal_shows_colours()));
}

}  // namespace kova::app
