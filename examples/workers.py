"""A pool of threads that counts the words of several texts."""

import Queue
import threading

TEXTS = [
    'the quick brown fox jumps over the lazy dog',
    'to be or not to be that is the question',
    'the rain in spain stays mainly in the plain',
    'all that glitters is not gold',
]


class Worker(threading.Thread):

    def __init__(self, number, jobs, results):
        threading.Thread.__init__(self, name='worker %d' % number)
        self.jobs = jobs
        self.results = results

    def run(self):
        while True:
            text = self.jobs.get()
            if text is None:
                break
            self.results.put(count_words(text))


def count_words(text):
    counts = {}
    for word in text.split():
        counts[word] = counts.get(word, 0) + 1
    return counts


def merge(results):
    total = {}
    for counts in results:
        for word, count in counts.items():
            total[word] = total.get(word, 0) + count
    return total


def main():
    jobs, results = Queue.Queue(), Queue.Queue()
    workers = [Worker(number, jobs, results) for number in (1, 2, 3)]
    for worker in workers:
        worker.start()
    for text in TEXTS:
        jobs.put(text)
    for worker in workers:
        jobs.put(None)
    for worker in workers:
        worker.join()
    total = merge(results.get() for text in TEXTS)
    for word, count in sorted(total.items(), key=lambda item: (-item[1], item[0]))[:5]:
        print count, word


if __name__ == '__main__':
    main()
