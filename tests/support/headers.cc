// The headers of this source are compiled once, ahead of the tests: see tests/CMakeLists.txt.
