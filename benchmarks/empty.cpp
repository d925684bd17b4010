// Does nothing: what remains is the cost of starting a program in the tool's link mode.
int main() {
  return 0;
}
