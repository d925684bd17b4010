// The price of starting a program that is linked as the tool is.
int main() {
  return 0;
}
