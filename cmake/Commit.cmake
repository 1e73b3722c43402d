# Writes the source that holds the commit of the tree, when it is another than before: cmake -DSOURCE=... -DOUTPUT=... -P
# Commit.cmake.

find_package(Git QUIET)
set(commit "")
if(GIT_FOUND AND EXISTS ${SOURCE}/.git)
  execute_process(COMMAND ${GIT_EXECUTABLE} -C ${SOURCE} rev-parse --short=12 HEAD OUTPUT_VARIABLE commit
    OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
set(text "namespace app {\nextern const char* const kCommit;\nconst char* const kCommit = \"${commit}\";\n}  // namespace app\n")
set(before "")
if(EXISTS ${OUTPUT})
  file(READ ${OUTPUT} before)
endif()
if(NOT before STREQUAL text)
  file(WRITE ${OUTPUT} "${text}")
endif()
