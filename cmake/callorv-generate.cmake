# callorv_generate(<target> <dictionary> [LANGUAGE c++|c] [MESSAGES <number>...] [NAMESPACE <name>]
#                  [OUTPUT <directory>])
#
# Gives <target> the typed classes, or functions of C, that `callorv generate` writes for the messages of a dictionary:
# the headers are made before the target is compiled, and again, with the target's sources, when the dictionary changes.
#
#   add_executable(shop main.cpp)                          #include "quote_msg.h"
#   target_link_libraries(shop PRIVATE callorv::callorv)   msgs::CQuote cQuote;
#   callorv_generate(shop dictionary.xml)
#
#   LANGUAGE   c++ when not given
#   MESSAGES   only these messages and what they hold; without it all
#   NAMESPACE  name space of the classes, or what the functions' names begin with; "msgs" when not given
#   OUTPUT     directory of the headers, which is added to the target's include path; <target>_messages in the binary
#              directory when not given
#
# Call it in the directory that makes the target. The command is, in this order: what CALLORV_COMMAND is set to; where
# CallOrv is part of the build, the one there, which is built for it even when CALLORV_TOOLS is off; the one that is
# installed beside the package; one on the PATH. Cross-compiling takes one that runs on the building machine.
function(callorv_generate TARGET DICTIONARY)
  cmake_parse_arguments(PARSE_ARGV 2 A "" "LANGUAGE;NAMESPACE;OUTPUT" "MESSAGES")
  if(A_UNPARSED_ARGUMENTS OR A_KEYWORDS_MISSING_VALUES)
    message(FATAL_ERROR "callorv_generate: wrong arguments: ${A_UNPARSED_ARGUMENTS}${A_KEYWORDS_MISSING_VALUES}")
  endif()
  if(A_LANGUAGE AND NOT A_LANGUAGE MATCHES "^(c|c[+][+])$")
    message(FATAL_ERROR "callorv_generate: LANGUAGE is c++ or c, not ${A_LANGUAGE}")
  endif()
  get_target_property(SOURCE_DIR ${TARGET} SOURCE_DIR)
  if(NOT SOURCE_DIR STREQUAL CMAKE_CURRENT_SOURCE_DIR)
    message(FATAL_ERROR "callorv_generate: target ${TARGET} is not made in this directory")
  endif()
  if(NOT CALLORV_COMMAND AND TARGET callorv_command AND (NOT CMAKE_CROSSCOMPILING OR CMAKE_CROSSCOMPILING_EMULATOR))
    set(COMMAND callorv_command)
  else()
    find_program(CALLORV_COMMAND callorv HINTS ${callorv_BINDIR} DOC "The callorv command")
    set(COMMAND ${CALLORV_COMMAND})
  endif()
  if(NOT COMMAND)
    get_property(LACKS GLOBAL PROPERTY CALLORV_COMMAND_LACKS)
    if(LACKS)
      set(LACKS ", and cannot be built without ${LACKS}")
    elseif(TARGET callorv_command)
      set(LACKS ", and the one that is built here is for another machine")
    endif()
    message(FATAL_ERROR "callorv_generate: the callorv command is not found beside the library nor on the PATH${LACKS}. "
      "Set CALLORV_COMMAND to one that runs on this machine: -DCALLORV_COMMAND=<path of callorv>")
  endif()

  get_filename_component(DICTIONARY "${DICTIONARY}" ABSOLUTE)
  set(DIR "${CMAKE_CURRENT_BINARY_DIR}/${TARGET}_messages")
  if(A_OUTPUT)
    get_filename_component(DIR "${A_OUTPUT}" ABSOLUTE BASE_DIR "${CMAKE_CURRENT_BINARY_DIR}")
  endif()
  set(OPTIONS)
  if(A_LANGUAGE)
    list(APPEND OPTIONS --language ${A_LANGUAGE})
  endif()
  if(A_NAMESPACE)
    list(APPEND OPTIONS --namespace "${A_NAMESPACE}")
  endif()
  foreach(NUMBER IN LISTS A_MESSAGES)
    list(APPEND OPTIONS --message ${NUMBER})
  endforeach()

  # Which headers there will be is known only when they are made, so this file stands for all of them.
  set(STAMP "${DIR}.stamp")
  add_custom_command(OUTPUT "${STAMP}"
    COMMAND ${COMMAND} generate "${DICTIONARY}" -o "${DIR}" ${OPTIONS}
    COMMAND ${CMAKE_COMMAND} -E touch "${STAMP}"
    DEPENDS "${DICTIONARY}" ${COMMAND}
    COMMENT "Generating the messages of ${TARGET}" VERBATIM)
  target_sources(${TARGET} PRIVATE "${STAMP}")
  target_include_directories(${TARGET} PRIVATE "${DIR}")
  # At the end of the directory, when the target has all its sources.
  cmake_language(EVAL CODE "cmake_language(DEFER CALL callorv_compile_after [[${TARGET}]] [[${STAMP}]])")
endfunction()

# Lets every source of a target be compiled again when a file changes.
function(callorv_compile_after TARGET FILE)
  get_target_property(SOURCES ${TARGET} SOURCES)
  list(FILTER SOURCES INCLUDE REGEX "\\.(c|C|cc|cpp|cxx|c\\+\\+)$")
  set_property(SOURCE ${SOURCES} APPEND PROPERTY OBJECT_DEPENDS "${FILE}")
endfunction()
