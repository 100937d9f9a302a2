# Writes OUTPUT with the version text "branch - version - commit - commit date - build type". The header changes only if
# the text does, so that nothing is compiled again needlessly.
function(git_text result)
  execute_process(COMMAND git -C ${SOURCE_DIR} ${ARGN}
                  OUTPUT_VARIABLE text ERROR_QUIET RESULT_VARIABLE failed OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(failed OR text STREQUAL "")
    set(text "unknown")
  endif()
  set(${result} "${text}" PARENT_SCOPE)
endfunction()

git_text(branch rev-parse --abbrev-ref HEAD)
git_text(commit rev-parse --short HEAD)
git_text(date log -1 --format=%cs)
if(BUILD_TYPE STREQUAL "")
  set(BUILD_TYPE "None")
endif()

set(content "#pragma once\n#define SATNAVD_VERSION_TEXT \\\n  \"${branch} - ${PROJECT_VERSION} - ${commit} - ${date} - ${BUILD_TYPE}\"\n")
set(old "")
if(EXISTS ${OUTPUT})
  file(READ ${OUTPUT} old)
endif()
if(NOT old STREQUAL content)
  file(WRITE ${OUTPUT} "${content}")
endif()
