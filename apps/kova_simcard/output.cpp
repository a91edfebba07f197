#include "kova_simcard/output.h"

namespace kova::app {

void write_text(std::FILE* file, std::string_view text) {
    static_cast<void>(std::fwrite(text.data(), 1, text.size(), file));
    static_cast<void>(std::fflush(file));
}

}  // namespace kova::app
