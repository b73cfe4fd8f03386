// An output written the safe way: into a temporary file beside it (the same folder, so
// the rename is atomic), renamed over the target only once complete. An existing target
// is never touched before that. An interrupt (SIGINT, SIGTERM, SIGHUP) while any output is
// open removes its temporary file and ends the program with 128 + the signal and one line.
#ifndef LUMIVEX_TOOLS_IO_OUTPUT_FILE_H_
#define LUMIVEX_TOOLS_IO_OUTPUT_FILE_H_

#include <string>

namespace lumivex::tools {

class OutputFile {
 public:
  OutputFile() = default;
  ~OutputFile();  // removes the temporary file unless committed
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Creates the temporary file now, so that a place that cannot be written fails before
  // any work is done; false with one line of why.
  bool Open(const std::string& target, std::string* error);
  // Where to write until Commit.
  const std::string& temp_path() const { return temp_; }
  const std::string& target() const { return target_; }
  // Renames the temporary file over the target; false with why.
  bool Commit(std::string* error);

 private:
  std::string target_, temp_;
  int slot_ = -1;
};

// Arms the interrupt handling above; once, before the first output is opened.
void CleanUpOnInterrupt();

}  // namespace lumivex::tools

#endif  // LUMIVEX_TOOLS_IO_OUTPUT_FILE_H_
