# Writes the list of what the embedded host exports: its own calls, and whatever the library leaves undefined that is not
# the language's runtime. cmake -DNM=... -DLIBRARY=... -DOUTPUT=... -P HostExports.cmake.

execute_process(COMMAND ${NM} -D --undefined-only ${LIBRARY} OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "U [A-Za-z0-9_]+(@[^\n]*)?\n" symbols "${symbols}")
set(names "")
foreach(symbol ${symbols})
  if(NOT symbol MATCHES "@" AND NOT symbol MATCHES "U _?_(asan|ubsan|lsan|sanitizer)_")
    string(REGEX REPLACE "U (.*)\n" "    \\1;\n" symbol "${symbol}")
    string(APPEND names "${symbol}")
  endif()
endforeach()
file(WRITE ${OUTPUT} "{\n  global:\n${names}    extern \"C++\" { hierfit::Fit*; hierfit::Predict*; hierfit::Version*; };\n  local:\n    *;\n};\n")
