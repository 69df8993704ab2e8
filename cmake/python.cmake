# The Python interpreter. Where the one on the path is a version manager's shim, the one behind it: the shim starts a
# shell each time, which takes ten times as long as Python itself.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
execute_process(COMMAND ${Python3_EXECUTABLE} -c "import sys; print(sys.executable)"
  OUTPUT_VARIABLE Python3_EXECUTABLE OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
set_target_properties(Python3::Interpreter PROPERTIES IMPORTED_LOCATION ${Python3_EXECUTABLE})
