# Writes the text file INPUT into the C++ source OUTPUT as the character array NAME in namespace
# iam::tool, so that a program carries the file without reading it at run time.
# Usage: cmake -DINPUT=... -DOUTPUT=... -DNAME=... -P EmbedText.cmake
file(READ "${INPUT}" text)
if(text MATCHES "\\)iam_embedded\"")
  message(FATAL_ERROR "${INPUT} holds the raw string delimiter )iam_embedded\"")
endif()
file(WRITE "${OUTPUT}" "// Generated from ${INPUT}; edit that file instead.\nnamespace iam::tool {\nextern const char ${NAME}[];\nconst char ${NAME}[] = R\"iam_embedded(${text})iam_embedded\";\n}  // namespace iam::tool\n")
