#pragma once

#include <cstdio>
#include <list>
#include <string>

/// The `ttyUSB` devices in /dev as full paths, in the order of `ls`: ttyUSB10 comes before ttyUSB2.
/// Nothing says that an entry is a device; opening it shows. Empty when there is none, or when the
/// listing cannot be run.
std::list<std::string> GetUSBDevices();

/// The same from a listing's output. It is read in pieces of at most 9 characters: an entry longer
/// than 8 characters gives two bogus paths.
std::list<std::string> ReadDeviceListing(FILE* listing);
