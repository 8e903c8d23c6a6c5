import os


def words():
    folder = os.path.join(os.path.dirname(__file__), "data")
    return open(os.path.join(folder, "words.txt")).read().split()


def main():
    print " ".join(words())
