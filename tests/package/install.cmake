# Installs BUILD_DIR to a place and moves it to PREFIX, since a package must not depend on where it was put first.
file(REMOVE_RECURSE ${PREFIX} ${PREFIX}-first)
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${PREFIX}-first
  COMMAND_ERROR_IS_FATAL ANY OUTPUT_QUIET)
file(RENAME ${PREFIX}-first ${PREFIX})
