#include "Commands.h"

int main(int argc, char** argv) {
  return runQcfpkg(argc, argv);
}
