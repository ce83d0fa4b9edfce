#include "Tovik/agent.h"

int main(int argc, char** argv) {
  return RunAgent(argc, argv);
}
