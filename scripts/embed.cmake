# Turns a file into a C++ source that defines `extern const std::string_view SYMBOL`.
file(READ ${IN} content HEX)
string(LENGTH "${content}" hex_len)
math(EXPR byte_len "${hex_len} / 2")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${content}")
file(WRITE ${OUT} "// Generated from ${IN}; do not edit.\n#include <string_view>\n"
  "namespace trovix::props {\nstatic const char kData[] = {${bytes} 0};\n"
  "extern const std::string_view ${SYMBOL};\n"
  "const std::string_view ${SYMBOL}(kData, ${byte_len});\n}\n")
