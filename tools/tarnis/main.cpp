#include "Program.h"
#include "terminal/StandardStreams.h"

#include <string>
#include <vector>

int main(int argc, char** argv)
{
    TarnisTool::prepareStandardStreams();
    return TarnisTool::runProgram(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
}
