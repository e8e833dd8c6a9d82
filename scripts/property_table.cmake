# Turns the shell property table (tab-separated, see data/README.md) into a C++ source that
# defines it as constant data: the programs start without parsing anything, and the rows sit in
# read-only pages that need no relocation. A row the programs could not use stops the build
# here, naming its line, instead of being skipped at run time.
#
#   cmake -DIN=table.tsv -DOUT=table.cpp -P property_table.cmake

set(expected_header "canonical_name\tpkey_symbol\tfmtid\tpid\tvartype\tvt_number\tcrc32")
set(hex "[0-9A-Fa-f]")
set(h4 "${hex}${hex}${hex}${hex}")
set(guid_regex "^{${h4}${h4}-${h4}-${h4}-${h4}-${h4}${h4}${h4}}$")

# A refusal is written as a compiler writes an error (file:line: what), on one line: CMake's
# own error messages are wrapped and would split it.
function(refuse line_number message)
  message(NOTICE "${IN}:${line_number}: ${message}")
  message(FATAL_ERROR "The property table ${IN} is malformed; no source was generated.")
endfunction()

file(READ "${IN}" text)
# None of these is in a valid table: CMake's lists treat the first three specially (refusing
# them keeps the splitting below exact), and the last two would end the C++ string literal the
# names are written into.
foreach(special ";" "[" "]" "\\" "\"")
  string(FIND "${text}" "${special}" at)
  if(NOT at EQUAL -1)
    string(SUBSTRING "${text}" 0 ${at} before)
    string(REGEX MATCHALL "\n" breaks "${before}")
    list(LENGTH breaks line_number)
    math(EXPR line_number "${line_number} + 1")
    refuse(${line_number} "the line holds a '${special}', which no field may")
  endif()
endforeach()
string(REPLACE "\r\n" "\n" text "${text}")
# Blank lines at the end are an editor's, not rows.
string(REGEX REPLACE "\n+$" "" text "${text}")
string(REPLACE "\n" ";" lines "${text}")

set(names "")
set(rows "")
set(offset 0)
set(count 0)
set(line_number 0)
set(previous "")
foreach(line IN LISTS lines)
  math(EXPR line_number "${line_number} + 1")
  if(line_number EQUAL 1)
    if(NOT line STREQUAL expected_header)
      refuse(1 "the header is not the expected columns (${expected_header})")
    endif()
    continue()
  endif()
  string(REPLACE "\t" ";" fields "${line}")
  list(LENGTH fields field_count)
  if(NOT field_count EQUAL 7)
    refuse(${line_number} "${field_count} fields where 7 are expected")
  endif()
  list(GET fields 0 name)
  list(GET fields 2 fmtid)
  list(GET fields 3 pid)
  list(GET fields 5 vartype)
  list(GET fields 6 crc)
  if(NOT name MATCHES "^System\\.[A-Za-z0-9_.]+$")
    refuse(${line_number} "'${name}' is not a System.* name of letters, digits and dots")
  endif()
  if(NOT previous STRLESS name)
    refuse(${line_number} "'${name}' does not follow '${previous}' in byte order (the names are looked up by binary search)")
  endif()
  if(NOT fmtid MATCHES "${guid_regex}")
    refuse(${line_number} "'${fmtid}' is not a format id written {XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}")
  endif()
  # {data1-data2-data3-data4[0..1]-data4[2..7]}
  string(SUBSTRING "${fmtid}" 1 8 data1)
  string(SUBSTRING "${fmtid}" 10 4 data2)
  string(SUBSTRING "${fmtid}" 15 4 data3)
  set(guid "0x${data1}, 0x${data2}, 0x${data3}, {")
  foreach(at 20 22 25 27 29 31 33 35)
    string(SUBSTRING "${fmtid}" ${at} 2 byte)
    string(APPEND guid "0x${byte}, ")
  endforeach()
  string(REGEX REPLACE ", $" "}" guid "${guid}")
  if(NOT pid MATCHES "^[0-9]+$" OR pid GREATER 4294967295)
    refuse(${line_number} "the property id '${pid}' is not a 32-bit decimal number")
  endif()
  if(NOT vartype MATCHES "^[0-9]+$" OR vartype GREATER 65535)
    refuse(${line_number} "the type number '${vartype}' is not a 16-bit decimal number")
  endif()
  if(NOT crc MATCHES "^0x${hex}${hex}${hex}${hex}${hex}${hex}${hex}${hex}$")
    refuse(${line_number} "the CRC '${crc}' is not written 0xXXXXXXXX")
  endif()
  string(LENGTH "${name}" size)
  string(APPEND names "    \"${name}\"\n")
  string(APPEND rows "    {${offset}, ${size}, {{${guid}}, ${pid}u}, ${vartype}, ${crc}},\n")
  math(EXPR offset "${offset} + ${size}")
  math(EXPR count "${count} + 1")
  set(previous "${name}")
endforeach()
if(count EQUAL 0)
  refuse(${line_number} "the table has no rows")
endif()

get_filename_component(in_name "${IN}" NAME)
file(WRITE "${OUT}.tmp"
  "// Generated from ${in_name} by property_table.cmake at build time; do not edit.\n"
  "#include \"props/system_property_table.h\"\n\n"
  "namespace trovix::props {\n\n"
  "// The canonical names, back to back; each row keeps its name's offset and length.\n"
  "extern constinit const char kSystemPropertyNames[] =\n${names};\n\n"
  "extern constinit const SystemPropertyRow kSystemPropertyRows[] = {\n${rows}};\n"
  "extern constinit const size_t kSystemPropertyRowCount = ${count};\n\n"
  "}  // namespace trovix::props\n")
# Rewritten only when it changes, so that touching the table's file recompiles nothing else.
file(COPY_FILE "${OUT}.tmp" "${OUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUT}.tmp")
