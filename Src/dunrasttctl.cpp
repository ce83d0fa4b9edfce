#include "ctl/tool.h"

int main(int argc, char** argv) {
  return ctl::RunTool(argc, argv);
}
