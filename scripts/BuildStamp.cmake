# Writes the date and time, UTC, as a source. Usage: cmake -D OUTPUT=FILE -P BuildStamp.cmake
string(TIMESTAMP date "%d.%m.%Y" UTC)
string(TIMESTAMP time "%H:%M:%S" UTC)
file(WRITE ${OUTPUT} "#include \"api/BuildStamp.h\"\n\n"
     "const char* const kBuildDate = \"${date}\";\nconst char* const kBuildTime = \"${time}\";\n")
