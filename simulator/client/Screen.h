// Standard output, as a person or a program reads it.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace client {

/// Shows sentences, and on a terminal one line that is written over and over. One thread.
class Screen {
 public:
  enum class Mode {
    kSilent,    ///< nothing is shown
    kPlain,     ///< plain lines without control sequences
    kTerminal,  ///< a terminal that can go back to the start of its line
  };

  /// Finds out the mode; kSilent when asked for it.
  explicit Screen(bool silent);

  Mode mode() const { return _mode; }

  /// Shows a sentence on a line of its own, unless silent.
  void sentence(const std::string& text) const;

  /// Writes over the line. For a terminal.
  void overwrite(const std::string& text);

  /// Ends the line that is written over, so that other output starts on its own.
  void endLine();

  /// Whether the reader of standard output is still there.
  bool works() const;

  /// The terminal's width in columns, or nothing where it does not tell.
  static std::optional<std::size_t> columns();

 private:
  Mode _mode;
  bool _lineOpen = false;
};

}  // namespace client
