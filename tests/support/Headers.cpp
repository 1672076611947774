// What the suites' precompiled headers belong to.
int main() {}
