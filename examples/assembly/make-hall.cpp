// Writes the hall of servers to a STEP file.
#include "examples/assembly/Hall.h"
#include "examples/assembly/StepFile.h"

#include <cstdlib>
#include <iostream>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: make-hall FILE.step\n";
        return 2;
    }
    const Handle(TDocStd_Document) document = assembly::newDocument();
    assembly::buildHall(document);
    try {
        assembly::saveStep(document, argv[1]);
    } catch (const assembly::StepError& error) {
        std::cerr << "make-hall: " << error.what() << '\n';
        return 1;
    }
    assembly::closeDocument(document);
    return 0;
}
