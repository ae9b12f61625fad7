#pragma once
// One comment slot of a logger.
#include <string>

class CommentSettings {
 public:
  std::string Description;
  std::string ViewPassword;
  std::string EditPassword;
  // Kept for the other programs of the product; this one only ever clears them.
  std::string Path;
  std::string Notes;

  void Clear() {
    Description.clear();
    ViewPassword.clear();
    EditPassword.clear();
    Path.clear();
    Notes.clear();
  }
};
