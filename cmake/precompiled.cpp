// Exists so that the common headers are compiled once; see the top CMakeLists.txt.
