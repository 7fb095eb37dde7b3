// Placeholder until the decoder lands.
int main() { return 2; }
