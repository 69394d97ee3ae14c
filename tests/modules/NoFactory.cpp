// A shared library that is no driver module.
extern "C" {
__attribute__((visibility("default"))) int answerOfNoFactory();
int answerOfNoFactory() {
    return 42;
}
}
