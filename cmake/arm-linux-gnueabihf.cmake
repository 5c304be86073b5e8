# 32-bit ARM, hard float: the board. Packages: script/deps --arm, and --test-arm for the tests.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
# Debian's multiarch keeps the libraries of each architecture in a folder of its own under /usr/lib.
set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabihf /usr/lib/arm-linux-gnueabihf /usr)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
# One compiler builds it all: how another one, before GCC 7, passed certain arguments is no news.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
