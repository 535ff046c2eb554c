// The headers that the files of the agent share are compiled with this file: see cmake/Host.cmake.
