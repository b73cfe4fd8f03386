// Picture files for the lumivex tools: JPEG through libjpeg-turbo, PNG through libpng.
#ifndef LUMIVEX_TOOLS_IO_IMAGE_FILES_H_
#define LUMIVEX_TOOLS_IO_IMAGE_FILES_H_

#include <functional>
#include <string>
#include <vector>

#include "tools/io/picture.h"

namespace lumivex::tools {

// Told the share written so far, now and then, while a picture is encoded.
using WriteProgress = std::function<void(double done)>;

// Reads a JPEG or PNG file (by its signature). On failure returns false and says why.
bool ReadImage(const std::string& path, Rgb* out, std::string* error);
// Writes JPEG (of that quality, 1 to 100) or PNG, chosen by the extension (.jpg/.jpeg/.png)
// of `kind_of` (the path itself when empty: a temporary file takes the name it will have).
bool WriteImage(const std::string& path, const Rgb& rgb, std::string* error, int quality = 92,
                const WriteProgress& progress = {}, const std::string& kind_of = "");

// JPEG bytes of that quality (1 to 100), in memory.
bool EncodeJpeg(const Rgb& rgb, int quality, std::vector<std::uint8_t>* out, std::string* error,
                const WriteProgress& progress = {});

// Case-insensitive suffix test, for file extensions.
bool EndsWith(const std::string& s, const std::string& suffix);

}  // namespace lumivex::tools

#endif  // LUMIVEX_TOOLS_IO_IMAGE_FILES_H_
