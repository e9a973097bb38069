#include "OrvaneApp.h"

int main(int argc, char** argv) {
    return orvane::runOrvane(argc, argv);
}
