// Placeholder entry point until the start-up code lands.
int main() { return 0; }
