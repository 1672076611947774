#pragma once

// The program with its arguments; returns its exit status.
int runQcfpkg(int argc, char** argv);
