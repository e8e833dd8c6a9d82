// Files the tests read: a whole file's bytes, and the folder of the sample corpus (the
// TROVIX_CORPUS variable names another; tests skip what needs it when it is not there).
#pragma once

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace trovix::testing {

inline std::string ReadWholeFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

#ifdef TROVIX_CORPUS_DIR
inline std::string CorpusDir() {
  const char* set = std::getenv("TROVIX_CORPUS");
  return set && *set ? set : TROVIX_CORPUS_DIR;
}
#endif

}  // namespace trovix::testing
