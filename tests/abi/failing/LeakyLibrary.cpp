namespace Tarnis {

class [[gnu::visibility("default")]] CommandRunner
{
public:
    void run();
};

void CommandRunner::run() {}

} // namespace Tarnis
