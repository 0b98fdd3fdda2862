#include "peer_report.h"

int main(int argc, char** argv) {
    return bench::run_beside_peers(argc, argv);
}
