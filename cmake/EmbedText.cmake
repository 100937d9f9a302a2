# Writes OUTPUT, a C++ source that includes HEADER and defines NAME, a std::string_view in NAMESPACE, as the text of INPUT.
file(READ ${INPUT} bytes HEX)
string(REGEX REPLACE "(................................)" "\\1\n  " bytes "${bytes}")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1', " bytes "${bytes}")
file(WRITE ${OUTPUT} "// Made by the build; any change is lost.
#include \"${HEADER}\"

namespace ${NAMESPACE} {

namespace {
constexpr char TEXT[] = {
  ${bytes}
};
}  // namespace

constinit const std::string_view ${NAME}(TEXT, sizeof TEXT);

}  // namespace ${NAMESPACE}
")
